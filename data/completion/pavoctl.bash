# Bash completion of pavoctl: source this file, or put it into /usr/share/bash-completion/completions/pavoctl.

# The next word of a --vlan option ("20 untagged=1-4,lag2"), which is one argument in quotes: keys, and "lag" in a list.
_pavoctl_vlan() {
    local head="" last=${1#[\"\']} key
    [[ $last == *" "* ]] && head=${last% *}" " && last=${last##* }
    if [[ $last =~ ^(untagged|tagged|assigned)=(.*,)?[lag]*$ ]]; then
        printf '%s\n' "$head${BASH_REMATCH[1]}=${BASH_REMATCH[2]}lag"
    elif [ -n "$head" ]; then
        for key in type profile untagged tagged assigned; do
            [[ $head == *" $key="* ]] || printf '%s\n' "$head$key="
        done
    fi
}

_pavoctl() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} words=""
    local command="" sub="" word
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $word in
            -*) ;;
            profile | vlan | neighbours | multicast | cache | vendor | nice) [ -z "$command" ] && command=$word ;;
            *) [ -n "$command" ] && [ -z "$sub" ] && sub=$word ;;
        esac
    done
    local IFS=$'\n'
    case "$command/$sub" in
        /) words=$'profile\nvlan\nneighbours\nmulticast\ncache\nvendor\nnice\n--json\n--help' ;;
        profile/) words=$'types\ntemplates\nlist\nshow\nstatus\napply\ndelete\n--help' ;;
        neighbours/) words=$'--follow\n--interval\n--json\n--help' ;;
        vlan/) words=$'list\nshow\ninterfaces\ncreate\ndelete\nname\nparticipation\ntagging\npvid\nframes\nauto\n--help' ;;
        vlan/participation) words=$'include\nauto\nexclude\n--force\n--help' ;;
        vlan/tagging) words=$'tagged\nuntagged\n--force\n--help' ;;
        vlan/frames) words=$'all\nvlanonly\nadmituntaggedonly\n--force\n--help' ;;
        vlan/auto) words=$'enable\ndisable\n--help' ;;
        vlan/delete | vlan/name | vlan/pvid) words=$'--force\n--help' ;;
        multicast/) words=$'groups\nmode\ndeny\n--help' ;;
        multicast/groups) words=$'--cache\n--help' ;;
        multicast/mode) words=$'normal\nrouter\nblocked\n--help' ;;
        multicast/deny) words=$'--clear\n--help' ;;
        nice/) words=$'on\noff\nstatus\n--help' ;;
        cache/) words=$'list\nread\nrefresh\ndelete\n--help' ;;
        cache/read | cache/refresh | cache/delete)
            words=$("${COMP_WORDS[0]}" --json cache list 2>/dev/null | sed -n 's/^\t\t\t"name":\t"\(.*\)",$/\1/p')
            ;;
        profile/show | profile/status | profile/delete)
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
                --vlan)
                    words=$(_pavoctl_vlan "${current//\\/}")
                    compopt -o nospace 2>/dev/null
                    ;;
                *) words=$'--name\n--type\n--color\n--ptp\n--vlan\n--overwrite\n--force\n--plan\n--help'$'\n'$(compgen -f -- "$current") ;;
            esac
            ;;
    esac
    # Names come from the switch and must not be expanded, as compgen -W would.
    local prefix=${current#[\"\']} reply
    COMPREPLY=()
    while read -r reply; do
        [ -n "$reply" ] && [[ $reply == "${prefix//\\/}"* ]] || continue
        case $current in
            \"*)
                reply=${reply//\\/\\\\}
                reply=${reply//\$/\\\$}
                reply=${reply//\`/\\\`}
                COMPREPLY+=("${reply//\"/\\\"}")
                ;;
            \'*) [[ $reply == *\'* ]] || COMPREPLY+=("$reply") ;;
            *) COMPREPLY+=("$(printf '%q' "$reply")") ;;
        esac
    done <<<"$words"
}
complete -F _pavoctl pavoctl
