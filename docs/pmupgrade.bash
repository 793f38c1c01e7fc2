# Completion of pmupgrade for bash: its options, then files.

_pmupgrade() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} words=''
    COMPREPLY=()
    if [[ $previous == --allow ]]; then
        words=$(pmfile check --allow '' - </dev/null 2>&1 | sed -n 's/.*expected one of //; s/,//g; s/ or / /p')
    elif [[ $current == -* ]]; then
        words='--dry-run --keep --allow --anyway --no-return --return --help --version'
    fi
    [[ -z $words ]] || mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    # Without a reply, bash offers files.
}
complete -o default -F _pmupgrade pmupgrade
