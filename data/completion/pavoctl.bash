# Bash completion of pavoctl: source this file, or put it into /usr/share/bash-completion/completions/pavoctl.
_pavoctl() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} words=""
    local command="" sub="" word
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $word in
            -*) ;;
            profile | vlan) [ -z "$command" ] && command=$word ;;
            *) [ -n "$command" ] && [ -z "$sub" ] && sub=$word ;;
        esac
    done
    local IFS=$'\n'
    case "$command/$sub" in
        /) words=$'profile\nvlan\n--json\n--help' ;;
        profile/) words=$'types\ntemplates\nlist\nshow\napply\ndelete\n--help' ;;
        vlan/) words=$'list\nshow\n--help' ;;
        profile/show | profile/delete)
            words=$("${COMP_WORDS[0]}" --json profile list 2>/dev/null |
                sed -n 's/^\t\t\t"name":\t"\(.*\)",$/\1/p')
            ;;
        profile/apply)
            case $previous in
                --type)
                    words=$("${COMP_WORDS[0]}" --json profile types 2>/dev/null |
                        sed -n 's/^\t\t\t"name":\t"\(.*\)",$/\1/p')
                    ;;
                --ptp) words=$'on\noff' ;;
                *) words=$'--name\n--type\n--color\n--ptp\n--vlan\n--overwrite\n--force\n--help'$'\n'$(compgen -f -- "$current") ;;
            esac
            ;;
    esac
    local reply
    COMPREPLY=()
    while read -r reply; do
        [ -n "$reply" ] && COMPREPLY+=("$(printf '%q' "$reply")")
    done < <(compgen -W "$words" -- "${current//\\/}")
}
complete -F _pavoctl pavoctl
