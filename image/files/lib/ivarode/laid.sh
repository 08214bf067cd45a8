# shellcheck shell=sh
# What the interface manager has laid, and the process itself, for the scripts that take of it. Sourced.

# shellcheck source=image/files/lib/ivarode/wan.sh
. /lib/ivarode/wan.sh

DAEMON=/usr/sbin/ivarode
DAEMON_CONFIG=$WAN_RUN/config # a copy of what the daemon was started with
END_WAIT=10                   # seconds

# By its file: the init script's process bears the same name.
daemon_pids() {
    for exe in /proc/[0-9]*/exe; do
        case $(readlink "$exe" 2>/dev/null) in
        "$DAEMON" | "$DAEMON (deleted)")
            exe=${exe%/exe}
            echo "${exe##*/}"
            ;;
        esac
    done
}

daemon_runs() {
    [ -n "$(daemon_pids)" ]
}

# wait_while COMMAND...: false where the command still says yes after the longest wait.
wait_while() {
    waited=0
    while "$@"; do
        [ "$waited" -lt "$END_WAIT" ] || return 1
        sleep 1
        waited=$((waited + 1))
    done
}

# Ends it as a crash does: its own way to end would take its clients with it.
daemon_kill() {
    # shellcheck disable=SC2046  # a list of numbers
    ! daemon_runs || kill -9 $(daemon_pids)
    wait_while daemon_runs
}

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

# The rule for established connections, in front of the jumps: TABLE PARENT ACCEPT.
accepts() {
    cat <<'ACCEPTS'
mangle PREROUTING ACCEPT
filter FORWARD ACCEPT
mangle FORWARD ACCEPT
ACCEPTS
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

# The supervisor's instances of a service that are named as WANs are. A WAN's row does not tell of them: a daemon that is
# killed may have started a client and not yet made the row, or removed the row while the bus was away.
clients() {
    ubus -t 5 -S call service list "{\"name\":\"$1\"}" 2>/dev/null | grep -o '"wan[^"]*": *{' | cut -d '"' -f 2
}

# delete_client SERVICE NAME
delete_client() {
    ubus -t 5 -S call service delete "{\"name\":\"$1\",\"instance\":\"$2\"}"
}

# chains_to_remove TABLE LINES: reads a table as iptables-save shows it, and writes what to take out of it. The lines are some of
# "chains" and "accepts".
chains_to_remove() {
    {
        own_chains | sed -n "s/^$1 /own /p"
        echo "$2" | sed -n "s/^$1 /chain /p"
        iptables-save -t "$1" 2>/dev/null
    } | awk '
        $1 == "own" { own[$2] = 1; next }
        $1 == "chain" && $3 == "ACCEPT" { accept[$2] = 1; next }
        $1 == "chain" { leaves[$3] = 1; parent[++listed] = $2; chain[listed] = $3; next }
        /^:/ { there[substr($1, 2)] = 1; next }
        $1 != "-A" || ($2 in own) { next }
        { held[$2]++ }
        $0 == "-A " $2 " -m conntrack --ctstate RELATED,ESTABLISHED -j ACCEPT" && $2 in accept {
            if (!accepts[$2]++) print "-D " substr($0, 4)
        }
        { for (i = 3; i < NF; i++) if ($i == "-j" || $i == "-g") calls[$(i + 1)]++ }
        NF == 4 && $3 == "-j" { jumps[$2, $4]++ }
        END {
            for (name in own) if (name in there && name in leaves) print "-F " name
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

# remove_chains LINES: each table at one go.
remove_chains() {
    result=0
    for table in nat mangle filter; do
        changes=$(chains_to_remove "$table" "$1")
        [ -z "$changes" ] || printf '*%s\n%s\nCOMMIT\n' "$table" "$changes" | iptables-restore -w --noflush || result=1
    done
    return "$result"
}

# The packages that the daemon reads at its start.
config_packages() {
    echo lan_intf wan_intf route_config
}

# Keeps the configuration that the daemon is about to read. A file that is written later says nothing about what runs.
config_keep() (
    umask 077
    wan_state_is_roots && make_folder "$DAEMON_CONFIG" || exit 1
    for package in $(config_packages); do
        if [ -e "/etc/config/$package" ]; then
            replace_file "$DAEMON_CONFIG/$package" 600 <"/etc/config/$package" || exit 1
        else
            rm -f "$DAEMON_CONFIG/$package"
        fi
    done
)

# Whether the configuration is the one that the daemon was started with.
config_is_kept() {
    [ -d "$DAEMON_CONFIG" ] && wan_state_is_roots || return 1
    for package in $(config_packages); do
        if [ -e "/etc/config/$package" ]; then
            [ -e "$DAEMON_CONFIG/$package" ] &&
                [ "$(cat "/etc/config/$package")" = "$(cat "$DAEMON_CONFIG/$package")" ] || return 1
        else
            [ ! -e "$DAEMON_CONFIG/$package" ] || return 1
        fi
    done
}
