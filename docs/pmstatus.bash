# Completion of pmstatus for bash: its options, then files.

_pmstatus() {
    local current=${COMP_WORDS[COMP_CWORD]}
    COMPREPLY=()
    [[ $current != -* ]] || mapfile -t COMPREPLY < <(compgen -W '--all --off --bus --names --with --brief --json
        --prometheus --watch --clear --help --version' -- "$current")
    # Without a reply, bash offers files.
}
complete -o default -F _pmstatus pmstatus
