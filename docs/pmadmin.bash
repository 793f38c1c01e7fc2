# Completion of pmadmin for bash: an option first, then the PM data file.

_pmadmin() {
    local current=${COMP_WORDS[COMP_CWORD]}
    COMPREPLY=()
    if ((COMP_CWORD == 1)) || [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W '-a -e -E -m -r -R -u -v' -- "$current")
    fi
    # Without a reply, bash offers files.
}
complete -o default -F _pmadmin pmadmin
