#!/bin/sh
# Events of the DHCP client of a WAN. The client passes the lease in the environment; /sbin/udhcpc adds the
# WAN's number. The last thing a new lease does is the line "bound" in the system log, and before it the row:
# whoever waits for either finds address, route and resolver in place.

# shellcheck disable=SC2154  # the client sets the lease's variables
# shellcheck source=image/files/lib/ivarode/wan.sh
. /lib/ivarode/wan.sh

number=${IVARODE_WAN_NUMBER:-20001}
# The address that was set, for as long as it is held. A client that holds none has nothing to take back.
held=$WAN_RUN/lease/$interface

# The new address first, so that routes through the device survive a renewal. Where both are of one network the
# kernel counts the new one as second to the old, and must not drop it with that.
set_address() {
    echo 1 2>/dev/null >"/proc/sys/net/ipv4/conf/$interface/promote_secondaries"
    wanted=$ip/${mask:-${subnet:-24}}
    if ! ip -4 -o addr show dev "$interface" | grep -q " inet $wanted "; then
        ip -4 addr del "$wanted" dev "$interface" 2>/dev/null
        ip -4 addr add "$wanted" ${broadcast:+broadcast "$broadcast"} dev "$interface" || return 1
    fi
    ip -4 -o addr show dev "$interface" | sed -n 's/.* inet \([0-9./]*\) .*/\1/p' | while read -r other; do
        [ "$other" = "$wanted" ] || ip -4 addr del "$other" dev "$interface"
    done
}

lease_up() {
    if ! wan_wait_row "$interface" dhcp; then
        wan_log "$interface: a lease for a WAN that is no longer a DHCP one is left alone"
        return 0
    fi
    set_address || return 1
    mkdir -p "${held%/*}" && echo "$wanted" >"$held"
    gateway=${router%% *}
    if [ -n "$gateway" ]; then
        wan_route_up "$interface" "$number" "$gateway"
    else
        wan_route_down "$interface" "$number"
    fi
    # shellcheck disable=SC2086  # a list of servers
    wan_dns "$interface" dhcp "$number" $dns
    # shellcheck disable=SC2086
    set -- $dns
    wan_row "$interface" dhcp "$ip" "${subnet:-0.0.0.0}" "${gateway:-0.0.0.0}" "$1" "$2"
    wan_log "$interface $event $ip/${mask:-$subnet} gateway ${gateway:-none} for ${lease:-?} s: bound"
}

lease_down() {
    if [ -e "$held" ] && wan_is_ours "$interface" dhcp; then
        wan_route_down "$interface" "$number"
        ip -4 addr del "$(cat "$held")" dev "$interface" 2>/dev/null
        wan_row "$interface" dhcp 0.0.0.0 0.0.0.0 0.0.0.0
    fi
    rm -f "$held"
    wan_dns "$interface" dhcp
    wan_log "$interface has no lease"
}

event=$1
case $event in
bound | renew) lease_up ;;
deconfig) lease_down ;;
leasefail | nak) wan_log "$interface: $event ${message:-}" ;;
esac
