#!/bin/sh
# Events of the DHCP client of a WAN. The client passes the lease in the environment; /sbin/udhcpc adds the
# WAN's number. The last thing a new lease does is the line "bound" in the system log, and before it the row:
# a waiter for either finds address, route and resolver in place. What a server says is not believed: a lease that
# could take traffic from another device, or that no host can have, is refused.

# shellcheck disable=SC2154  # the client sets the lease's variables
# shellcheck source=image/files/lib/ivarode/wan.sh
. /lib/ivarode/wan.sh

event=$1
number=${IVARODE_WAN_NUMBER:-20001}

# The new address first, so that routes through the device survive a renewal. Where both are of one network the
# kernel counts the new one as second to the old, and must not drop it with that.
set_address() {
    echo 1 2>/dev/null >"/proc/sys/net/ipv4/conf/$interface/promote_secondaries"
    if ! ip -4 -o addr show dev "$interface" | grep -q " inet $wanted "; then
        ip -4 addr del "$wanted" dev "$interface" 2>/dev/null
        if ! reason=$(ip -4 addr add "$wanted" ${broadcast:+broadcast "$broadcast"} dev "$interface" 2>&1); then
            wan_error "$interface $event $wanted: $reason"
            return 1
        fi
    fi
    ip -4 -o addr show dev "$interface" | sed -n 's/.* inet \([0-9./]*\) .*/\1/p' | while read -r other; do
        [ "$other" = "$wanted" ] || ip -4 addr del "$other" dev "$interface"
    done
}

# Takes from the words of the lease what can be used; false when it has to be refused.
read_lease() {
    if ! prefix=$(wan_prefix "$mask" "$subnet"); then
        fault="its mask is none"
    else
        fault=$(wan_address_fault "$interface" "$ip" "$prefix")
    fi
    [ -z "$fault" ] || return 1
    wanted=$ip/$prefix
    case $broadcast in *[!0-9.]*) broadcast= ;; esac
    case $subnet in *[!0-9.]*) subnet= ;; esac
    case $lease in *[!0-9]*) lease= ;; esac
    gateway=${router%%[!0-9.]*}
    servers=$(wan_hosts "$dns")
}

# The way out: none where the server names no gateway. One that is none, or cannot be reached, is an error.
set_route() {
    if [ -z "$router" ]; then
        wan_route_down "$interface" "$number"
        return 0
    fi
    if wan_is_host "$gateway" && [ "$gateway" != "$ip" ]; then
        wan_route_up "$interface" "$number" "$gateway" && return 0
    else
        wan_error "$interface: no default route, $router is not a gateway"
        wan_route_down "$interface" "$number"
    fi
    gateway=
    return 1
}

lease_up() {
    if ! wan_wait_row "$interface" dhcp; then
        wan_log "$interface: a lease for a WAN that is no longer a DHCP one is left alone"
        return 0
    fi
    if ! read_lease; then
        wan_error "$interface $event $ip/${mask:-$subnet} is refused: $fault"
        take_back
        wan_dns "$interface" dhcp
        return 1
    fi
    missing=
    { make_folder "${held%/*}" && echo "$wanted" | replace_file "$held" 644; } || missing="$missing record"
    set_address || return 1
    set_route || missing="$missing route"
    # shellcheck disable=SC2086  # a list of servers
    wan_dns "$interface" dhcp "$number" $servers || missing="$missing resolver"
    # shellcheck disable=SC2086
    set -- $servers
    wan_row "$interface" dhcp "$ip" "${subnet:-0.0.0.0}" "${gateway:-0.0.0.0}" "$1" "$2" || missing="$missing row"
    if [ -n "$missing" ]; then
        wan_error "$interface $event $wanted: incomplete, without$missing"
    else
        wan_log "$interface $event $wanted gateway ${gateway:-none} for ${lease:-?} s: bound"
    fi
}

# A client that holds no address has nothing to take back.
take_back() {
    if [ -e "$held" ] && wan_is_ours "$interface" dhcp; then
        wan_route_down "$interface" "$number"
        ip -4 addr del "$(cat "$held")" dev "$interface" 2>/dev/null
        wan_row "$interface" dhcp 0.0.0.0 0.0.0.0 0.0.0.0
    fi
    rm -f "$held"
}

lease_down() {
    take_back
    wan_dns "$interface" dhcp
    wan_log "$interface has no lease"
}

if ! wan_is_name "$interface"; then
    wan_error "an event for no device: $interface"
    exit 1
fi
case $number in *[!0-9]* | ??????*)
    wan_error "$interface: $number is no number of a WAN"
    exit 1
    ;;
esac
wan_state_is_roots || exit 1
# The address that was set, for as long as it is held.
held=$WAN_RUN/lease/$interface
case $event in
bound | renew) lease_up ;;
deconfig) lease_down ;;
leasefail | nak) wan_log "$interface: $event ${message:-}" ;;
esac
