# Completion of pmfile-plot for bash: options and files.

_pmfile_plot() {
    local current=${COMP_WORDS[COMP_CWORD]}
    COMPREPLY=()
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W '-o --help --version' -- "$current")
    fi
    # Without a reply, bash offers files.
}
complete -o default -F _pmfile_plot pmfile-plot
