# Completion of virtual-board for bash: options, then a command and what that takes.

_virtual_board() {
    local current=${COMP_WORDS[COMP_CWORD]} option='' at=1
    local flags='--remove --power-cycle --pid --summary --help --version'
    local valued='--board --hw-version --model --supply --sensor --log --trace-level --bus-log --time-scale --fault'
    COMPREPLY=()

    # The index of the command; after the current word if that is an option's value.
    while ((at < COMP_CWORD)); do
        [[ ${COMP_WORDS[at]} == -* ]] || break
        option=${COMP_WORDS[at++]}
        [[ $option != -- ]] || break
        if [[ " $valued " == *" $option "* ]]; then
            [[ ${COMP_WORDS[at]} != = ]] || ((++at)) # bash splits --option=value
            ((++at))
        fi
    done

    if ((at > COMP_CWORD)); then
        case $option in
        --hw-version) flags=none ;;
        --supply) flags='all=nominal all=none' ;;
        --fault)
            compopt -o nospace 2>/dev/null
            flags='absent busy code= keep= open= silent-after= store-silent= stuck='
            ;;
        *) return ;;
        esac
        mapfile -t COMPREPLY < <(compgen -W "$flags" -- "$current")
    elif ((at < COMP_CWORD)); then
        ! declare -F _command_offset >/dev/null || _command_offset "$at"
    elif [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$flags $valued" -- "$current")
    else
        mapfile -t COMPREPLY < <(compgen -c -- "$current")
    fi
    # Without a reply, bash offers files.
}
complete -o default -F _virtual_board virtual-board
