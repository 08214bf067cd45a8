#!/bin/sh
# Removes what the interface manager has laid: clients, iptables chains, policy rules, routes, bridges and VLAN
# devices, WAN rows. Safe to run twice. Run by the init script while the daemon ends.
#
# A chain that holds rules of other programs stays, with the jump that leads to it: the daemon hooks a chain
# only when it creates it, so a chain without its jump would stay out of use after the next start.
# Not touched: the switch's registers (the next start writes them), eth0 and eth1, secrets, login
# records.

# shellcheck source=image/files/lib/ivarode/laid.sh
. /lib/ivarode/laid.sh

# A daemon that was killed could not end its clients itself.
remove_clients() {
    for service in dhcp pppoe; do
        for name in $(clients "$service"); do
            delete_client "$service" "$name" >/dev/null 2>&1
        done
    done
}

# Preferences 10000 and 10001, and each P that leads to table P.
remove_rules() {
    ip -4 rule show | sed -n 's/^\([0-9]*\):.* lookup \([0-9a-z]*\).*/\1 \2/p' | while read -r preference table; do
        if [ "$preference" = 10000 ] || [ "$preference" = "$WAN_RULE_CONNECTED" ] ||
            { [ "$preference" = "$table" ] && wan_is_number "$table"; }; then
            ip -4 rule del pref "$preference"
        fi
    done
}

remove_routes() {
    wan_routes table all proto "$WAN_ROUTE_PROTO" | while read -r route; do
        # shellcheck disable=SC2086  # a route as the tool itself prints it
        ip -4 route del $route
    done
}

# What is on top of a CPU port: VLAN devices, and the bridges that hold them.
remove_devices() {
    for path in /sys/class/net/*; do
        device=${path##*/}
        case $device in lan* | wan*) [ -d "$path/bridge" ] && ip link del dev "$device" ;; esac
    done
    # An outer VLAN takes the inner ones on it with it.
    for path in /sys/class/net/eth[01].*; do
        [ ! -e "$path" ] || ip link del dev "${path##*/}"
    done
}

remove_files() {
    wan_state_is_roots || return
    rm -f "$WAN_ROWS"/* "$WAN_DNS"/[0-9]* "$WAN_RUN"/lease/* "$DAEMON_CONFIG"/*
    [ ! -d "$WAN_DNS" ] || wan_resolver_write
}

wait_while daemon_runs || wan_log "the interface manager still runs; its work is removed all the same"
remove_clients
remove_chains "$(
    chains
    accepts
)"
remove_rules
remove_routes
remove_devices
remove_files
