# Completion of pmfile for bash: a command, then its options and files.

_pmfile() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} words=''
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        words='show check diff source make read --help --version'
    elif [[ $previous == --allow || $previous == --deny ]]; then
        words=$(pmfile check --allow '' - </dev/null 2>&1 | sed -n 's/.*expected one of //; s/,//g; s/ or / /p')
    elif [[ $current == -* ]]; then
        case ${COMP_WORDS[1]} in
        show) words='--json --names' ;;
        check) words='--allow --deny --names' ;;
        diff) words='--settings --names' ;;
        make) words='--allow -o' ;;
        read) words='--bus --like --no-identity --force -o' ;;
        esac
    fi
    [[ -z $words ]] || mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    # Without a reply, bash offers files.
}
complete -o default -F _pmfile pmfile
