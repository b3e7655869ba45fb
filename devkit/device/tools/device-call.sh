# shellcheck shell=sh
# Sourced by the device tools: records the call of "$0 $@", then gives the ordered answer.
#   record_call "$@"            one JSON line in /tmp/.device/calls
#   answer 'usual output'       prints the ordered or the usual output and exits with the ordered code
state=/tmp/.device
tool=${0##*/}

json_text() {
    escaped=
    rest=$1
    while [ -n "$rest" ]; do
        tail=${rest#?}
        char=${rest%"$tail"}
        case $char in
        \" | \\) escaped=$escaped\\$char ;;
        [[:cntrl:]]) escaped="$escaped " ;;
        *) escaped=$escaped$char ;;
        esac
        rest=$tail
    done
    printf '"%s"' "$escaped"
}

record_call() {
    args=
    for arg in "$@"; do
        args="$args${args:+,}$(json_text "$arg")"
    done
    masks=
    while read -r name value; do
        case $name in
        SigBlk: | SigIgn: | SigCgt:) masks="$masks,\"${name%:}\":\"$value\"" ;;
        esac
    done </proc/$$/status
    # One write per line: calls made at the same time do not mix.
    printf '{"tool":"%s","args":[%s],"time":%s,"pid":%d%s}\n' "$tool" "$args" "$(date +%s.%N)" $$ "$masks" >>$state/calls
}

answer() {
    [ -f $state/"$tool".delay ] && sleep "$(cat $state/"$tool".delay)"
    if [ -f $state/"$tool".stdout ]; then
        cat $state/"$tool".stdout
    elif [ -n "$1" ]; then
        printf '%s\n' "$1"
    fi
    code=0
    [ -f $state/"$tool".exit ] && read -r code <$state/"$tool".exit
    exit "$code"
}
