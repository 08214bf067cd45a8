#!/bin/sh
# Takes away what the committed configuration does not name and a start would leave, then ends the daemon, which is to be
# started over the rest. Where all is as a clean start would make it, nothing is touched. Run by the init script.
#
# A step that fails is reported and the others are done; the next run finds what is left of it. A configuration with which
# the daemon would not start changes nothing.

# shellcheck source=image/files/lib/ivarode/laid.sh
. /lib/ivarode/laid.sh

usage="Usage: reload [--keep]
Makes the router as a clean start of the committed configuration would, and touches only what differs.

  --keep  keep what was added over the bus

Exit status: 0 done, 1 a step failed, 2 wrong usage, 3 ivarode-plan is not installed"

keep=
case $#$1 in
0) ;;
1--keep) keep=1 ;;
1--help)
    echo "$usage"
    exit
    ;;
*)
    echo "$usage" >&2
    exit 2
    ;;
esac

failed=0

# report TEXT: what went wrong, to who asked and to the system log.
report() {
    echo "reload: $1" >&2
    wan_error "reload: $1"
    failed=1
}

# shellcheck disable=SC2317  # asked by wait_while
client_runs() {
    [ -d "/proc/$pid" ]
}

# end_client SERVICE NAME: its last event gives back address, route and resolver, so its end is waited for.
end_client() {
    pid=$(ubus -t 5 -S call service list "{\"name\":\"$1\"}" |
        sed -n "s/.*\"$2\": *{[^{}]*\"pid\": *\([0-9]*\).*/\1/p")
    delete_client "$1" "$2" || return 1
    if [ -n "$pid" ] && ! wait_while client_runs; then
        echo "its process $pid goes on"
        return 1
    fi
    rm -f "$WAN_RUN/lease/$2"
    [ ! -d "$WAN_DNS" ] || wan_dns "$2" "$1"
}

remove_route() {
    table=$1
    shift
    [ -z "$(ip -4 route show table "$table" "$@")" ] || ip -4 route del table "$table" "$@"
}

# on_device NAME COMMAND...: nothing is to do where it went with another.
on_device() {
    [ -e "/sys/class/net/$1" ] || return 0
    shift
    "$@"
}

remove_row() (
    wan_state_is_roots && take_lock "$WAN_ROWS" && rm -f "$WAN_ROWS/$1"
)

# remove KIND WORD...: the kinds of ivarode-plan's leftovers.
remove() {
    kind=$1
    shift
    case $kind in
    client) end_client "$@" ;;
    route) remove_route "$@" ;;
    default) wan_default_remove "$2" "$1" ;;
    rule) ! wan_has_rule "$1" || ip -4 rule del pref "$1" ;;
    chain) remove_chains "$(echo "$left" | sed -n 's/^[a-z]* chain //p')" ;; # all at the first
    address) on_device "$1" ip -4 addr flush dev "$1" ;;
    member) on_device "$1" ip link set dev "$1" nomaster ;;
    device) on_device "$1" ip link del dev "$1" ;;
    row) remove_row "$1" ;;
    *)
        echo "an unknown kind"
        return 1
        ;;
    esac
}

# What no configuration names, neither the one that the daemon was started with: one line each, as it stands among the
# leftovers.
additions() {
    if [ ! -d "$DAEMON_CONFIG" ]; then
        echo "$left" | grep '^added '
    else
        ivarode-plan --leftovers --config "$DAEMON_CONFIG" | grep '^added '
    fi
}

is_addition() {
    [ -n "$kept" ] && echo "$kept" | grep -qxF "$1"
}

remove_leftovers() {
    while read -r why words; do
        [ -n "$words" ] || continue
        if is_addition "$why $words"; then
            echo "keeps $words"
            continue
        fi
        # shellcheck disable=SC2086  # the words of one removal
        if reason=$(remove $words 2>&1); then
            echo "removes $words"
        else
            report "$words stays: $reason"
        fi
    done <<LEFT
$left
LEFT
}

if ! command -v ivarode-plan >/dev/null; then
    if [ -n "$keep" ]; then
        report "ivarode-plan is not installed: nothing tells what to keep, and nothing is done"
        exit 1
    fi
    echo "ivarode-plan is not installed: everything is removed and laid again, as by restart"
    exit 3
fi
left=$(ivarode-plan --leftovers)
case $? in
0) differs= ;;
4) differs=1 ;;
*)
    report "nothing is changed"
    exit 1
    ;;
esac
kept=
if [ -n "$keep" ]; then
    kept=$(additions)
    # What else differs comes of them.
    [ "$kept" != "$left" ] || differs=
fi
if [ -z "$differs" ] && config_is_kept && daemon_runs; then
    [ -z "$left" ] || echo "$left" | sed 's/^added /keeps /'
    echo "nothing to do"
    exit
fi
remove_leftovers
reason=$(daemon_kill 2>&1) || report "the daemon goes on: $reason"
config_keep || report "the configuration is not noted: the next reload starts the daemon once more"
exit "$failed"
