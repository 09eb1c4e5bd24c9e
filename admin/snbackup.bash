# Completion of snbackup's command line for bash: source it, or install it as
# /usr/share/bash-completion/completions/snbackup. Commands and options are asked of the program's
# own help.
_snbackup() {
    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    case $previous in
        -m | --module)
            mapfile -t COMPREPLY < <(compgen -W "$("${COMP_WORDS[0]}" create --help |
                sed -n 's/.*{\([a-z,]*\)}.*/\1/p' | tr ',' ' ')" -- "$word")
            return ;;
        --session | --keep) return ;;
    esac
    if [ "$COMP_CWORD" -eq 1 ]; then
        mapfile -t COMPREPLY < <(compgen -W "$("${COMP_WORDS[0]}" --help |
            sed -n '/^Commands:/,/^$/s/^  \([a-z]*\) .*/\1/p') --help --version" -- "$word")
    elif [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$("${COMP_WORDS[0]}" "${COMP_WORDS[1]}" --help |
            grep -oE '^ +(-[a-zA-Z],)?--[a-z-]+' | tr ',' ' ')" -- "$word")
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    fi
}
complete -o filenames -F _snbackup snbackup
