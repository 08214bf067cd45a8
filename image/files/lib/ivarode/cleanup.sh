#!/bin/sh
# Removes what the interface manager has laid: clients, iptables chains, policy rules, routes, bridges and VLAN
# devices, WAN rows. Safe to run twice. Run by the init script while the daemon ends.
#
# A chain that holds rules of other programs stays, with the jump that leads to it: the daemon hooks a chain
# only when it creates it, so a chain without its jump would stay out of use after the next start.
# Not touched: the switch's registers (the next start writes them), eth0 and eth1, secrets, login
# records.

# shellcheck source=image/files/lib/ivarode/wan.sh
. /lib/ivarode/wan.sh

DAEMON=/usr/sbin/ivarode
END_WAIT=10 # seconds

# TABLE PARENT CHAIN, leaves before what leads to them.
chains() {
    cat <<'CHAINS'
nat ipt_postrt_nat_rules_1 intf_sip_mesquerade
mangle POSTROUTING ipt_postrt_mangle_rules_1
nat POSTROUTING ipt_postrt_nat_rules_3
nat POSTROUTING ipt_postrt_nat_rules_2
nat POSTROUTING ipt_postrt_nat_rules_1
filter ipt_input_filter_rules_3 input_filter_rules_drop
filter ipt_input_filter_rules_3 acl_input_filter_rules_user
filter ipt_input_filter_rules_2 ipt_input_filter_rules_all
filter INPUT ipt_input_filter_rules_3
filter INPUT ipt_input_filter_rules_2
filter INPUT ipt_input_filter_rules_1
mangle ipt_fwd_mangle_rules_1 ipt_fwd_mangle_rules_def
mangle FORWARD ipt_fwd_mangle_rules_1
filter ipt_fwd_filter_rules_2 acl_fwd_filter_rules_user
filter ipt_fwd_filter_rules_2 ipt_fwd_filter_mac
filter ipt_fwd_filter_rules_2 ipt_fwd_filter_rules_all
filter FORWARD ipt_fwd_filter_rules_3
filter FORWARD ipt_fwd_filter_rules_2
filter FORWARD ipt_fwd_filter_rules_1
nat ipt_prert_nat_rules_1 pmap_rules_user
nat PREROUTING ipt_prert_nat_rules_3
nat PREROUTING ipt_prert_nat_rules_2
nat PREROUTING ipt_prert_nat_rules_1
mangle ipt_prert_mangle_rules_1 wanload_prert_mangle_rule
mangle ipt_prert_mangle_rules_1 urlctrl_prert_mangle_rule
mangle PREROUTING ipt_prert_mangle_rules_3
mangle PREROUTING ipt_prert_mangle_rules_2
mangle PREROUTING ipt_prert_mangle_rules_1
CHAINS
}

# Chains that the daemon itself fills, and empties at each start.
own_chains() {
    cat <<'CHAINS'
mangle ipt_fwd_mangle_rules_def
filter ipt_input_filter_rules_all
filter input_filter_rules_drop
nat intf_sip_mesquerade
CHAINS
}

# By its file: the init script's process bears the same name.
daemon_runs() {
    for exe in /proc/[0-9]*/exe; do
        case $(readlink "$exe" 2>/dev/null) in "$DAEMON" | "$DAEMON (deleted)") return 0 ;; esac
    done
    return 1
}

wait_for_end() {
    waited=0
    while daemon_runs; do
        if [ "$waited" -ge "$END_WAIT" ]; then
            wan_log "the interface manager still runs; its work is removed all the same"
            return
        fi
        sleep 1
        waited=$((waited + 1))
    done
}

# The supervisor's instances of a service that are named as WANs are. A WAN's row does not tell of them: a daemon that is
# killed may have started a client and not yet made the row, or removed the row while the bus was away.
clients() {
    ubus -t 5 -S call service list "{\"name\":\"$1\"}" 2>/dev/null | grep -o '"wan[^"]*": *{' | cut -d '"' -f 2
}

# A daemon that was killed could not end its clients itself.
remove_clients() {
    for service in dhcp pppoe; do
        for name in $(clients "$service"); do
            ubus -t 5 -S call service delete "{\"name\":\"$service\",\"instance\":\"$name\"}" >/dev/null 2>&1
        done
    done
}

# Reads a table as iptables-save shows it, behind the lists of chains, and writes what to take out of it.
chains_to_remove() {
    {
        own_chains | sed -n "s/^$1 /own /p"
        chains | sed -n "s/^$1 /chain /p"
        iptables-save -t "$1" 2>/dev/null
    } | awk -v table="$1" '
        $1 == "own" { own[$2] = 1; next }
        $1 == "chain" { parent[++listed] = $2; chain[listed] = $3; next }
        /^:/ { there[substr($1, 2)] = 1; next }
        $1 != "-A" || ($2 in own) { next }
        { held[$2]++ }
        $0 == "-A " $2 " -m conntrack --ctstate RELATED,ESTABLISHED -j ACCEPT" && /^-A (PREROUTING|FORWARD) / && table != "nat" {
            if (!accepts[$2]++) print "-D " substr($0, 4)
        }
        { for (i = 3; i < NF; i++) if ($i == "-j" || $i == "-g") calls[$(i + 1)]++ }
        NF == 4 && $3 == "-j" { jumps[$2, $4]++ }
        END {
            for (name in own) if (name in there) print "-F " name
            for (i = 1; i <= listed; i++) {
                # Not there, holding rules of others, or called by others: stays, with its jump.
                if (!(chain[i] in there) || held[chain[i]] || calls[chain[i]] != jumps[parent[i], chain[i]]) continue
                for (n = jumps[parent[i], chain[i]]; n > 0; n--) {
                    print "-D " parent[i] " -j " chain[i]
                    held[parent[i]]--
                }
                print "-X " chain[i]
            }
        }'
}

remove_chains() {
    for table in nat mangle filter; do
        changes=$(chains_to_remove "$table")
        [ -z "$changes" ] || printf '*%s\n%s\nCOMMIT\n' "$table" "$changes" | iptables-restore -w --noflush
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
    rm -f "$WAN_ROWS"/* "$WAN_DNS"/[0-9]* "$WAN_RUN"/lease/*
    [ ! -d "$WAN_DNS" ] || wan_resolver_write
}

wait_for_end
remove_clients
remove_chains
remove_rules
remove_routes
remove_devices
remove_files
