# shellcheck shell=sh
# What the event scripts of a DHCP or PPPoE WAN have in common: default route, resolver, WAN row. Sourced.
#
# The daemon gives each WAN a number P (default 20001): metric of its default route, number of the table that
# the route is in, and preference of the rule that leads there. Several WANs may share P; the first that came
# up carries the traffic until it goes. 10001 is the rule that puts connected networks before any WAN.
#
# A row (/var/run/ivarode/wan/NAME) says that the daemon has such a WAN, and by which protocol. A script that
# finds no row, or another protocol, comes from a client that is on its way out: it must not touch the device,
# which may be another client's by now.

# shellcheck source=image/files/lib/ivarode/files.sh
. /lib/ivarode/files.sh
# shellcheck source=image/files/lib/ivarode/address.sh
. /lib/ivarode/address.sh

WAN_RUN=/var/run/ivarode
WAN_ROWS=$WAN_RUN/wan
WAN_DNS=$WAN_RUN/dns
WAN_ROUTE_PROTO=105 # marks the routes of this system
WAN_RULE_CONNECTED=10001

# Whether the folders of state that are there are root's; one line in the log where they are not. A link in the place
# of one would lead all that is written and removed there elsewhere.
wan_state_is_roots() {
    # shellcheck disable=SC2012  # mode and owner; stat is not on every router
    strange=$(ls -ldn "$WAN_RUN" "$WAN_ROWS" "$WAN_DNS" "$WAN_RUN/lease" "$WAN_RUN/config" 2>/dev/null |
        awk '$1 !~ /^d/ || $3 != 0 { print $9; exit }') || strange=$WAN_RUN
    [ -z "$strange" ] && return 0
    wan_error "nothing is done with $strange: it is not a folder of root's"
    return 1
}

wan_is_number() {
    case $1 in '' | *[!0-9]* | ??????*) return 1 ;; esac
    [ "$1" -ge 10002 ] && [ "$1" -le 32765 ]
}

# Nothing that a shell, or a reader of the rows, would take for more than a word.
wan_is_plain() {
    case $1 in *[!A-Za-z0-9.:/_-]*) return 1 ;; esac
}

# A device's name, which is also that of files.
wan_is_name() {
    case $1 in '' | .* | -* | *[!A-Za-z0-9._-]* | ????????????????*) return 1 ;; esac
}

wan_row_protocol() {
    sed -n 's/^proto=//p' "$WAN_ROWS/$1" 2>/dev/null
}

# wan_is_ours NAME PROTOCOL: the daemon's row is there and says so.
wan_is_ours() {
    [ -d "$WAN_ROWS" ] || return 0
    case $(wan_row_protocol "$1") in "$2"*) return 0 ;; esac
    return 1
}

# The daemon starts a client first and writes the row right behind it.
wan_wait_row() {
    for _ in 1 2 3; do
        wan_is_ours "$1" "$2" && return 0
        [ -e "$WAN_ROWS/$1" ] && return 1
        sleep 1
    done
    return 1
}

# wan_row NAME PROTOCOL ADDRESS NETMASK GATEWAY [DNS1 [DNS2]]: replaces an existing row, atomically.
wan_row() {
    [ -e "$WAN_ROWS/$1" ] || return 0
    for value in "$@"; do
        if ! wan_is_plain "$value"; then
            wan_error "$1: no row, its values hold more than names and addresses"
            return 1
        fi
    done
    (
        take_lock "$WAN_ROWS" || exit 1
        # asked again with the lock held: the WAN may have become another in the meantime
        [ -e "$WAN_ROWS/$1" ] && wan_is_ours "$1" "$2" || exit 0
        printf 'name=%s\nproto=%s\nipaddr=%s\nnetmask=%s\ngateway=%s\naddr4=%s\naddr5=%s\n' \
            "$1" "$2" "$3" "$4" "$5" "${6:-0.0.0.0}" "${7:-0.0.0.0}" | replace_file "$WAN_ROWS/$1" 644
    )
}

# Routes as "ip route" prints them, without the words that it does not read again.
wan_routes() {
    ip -4 route show "$@" 2>/dev/null | sed 's/ linkdown//; s/ dead//; s/ *$//'
}

wan_defaults() {
    wan_routes table "$1" | grep '^default '
}

wan_has_rule() {
    ip -4 rule show | grep -q "^$1:"
}

# wan_default_remove DEVICE P [KEEP]: the device's default routes in table P, except the one via KEEP.
wan_default_remove() {
    wan_defaults "$2" | while read -r route; do
        case "$route " in *" dev $1 "*) ;; *) continue ;; esac
        case "$route " in *" via ${3:--} "*) continue ;; esac
        # shellcheck disable=SC2086  # a route as the tool itself prints it
        ip -4 route del table "$2" $route
    done
}

# wan_route_up DEVICE P [GATEWAY]: new route first, so that there never is a moment without one.
wan_route_up() {
    if ! wan_is_number "$2"; then
        wan_error "$1: no default route, $2 is not a WAN number (10002 to 32765)"
        return 1
    fi
    if ! wan_defaults "$2" | grep -q "^default ${3:+via $3 }dev $1 "; then
        # A gateway outside the network of the address is reached on the link all the same.
        if ! ip -4 route append default ${3:+via "$3"} dev "$1" metric "$2" table "$2" proto "$WAN_ROUTE_PROTO" 2>/dev/null &&
            ! reason=$(ip -4 route append default ${3:+via "$3" onlink} dev "$1" metric "$2" table "$2" \
                proto "$WAN_ROUTE_PROTO" 2>&1); then
            wan_error "$1: no default route${3:+ via $3}: $reason"
            return 1
        fi
    fi
    [ -z "$3" ] || wan_default_remove "$1" "$2" "$3"
    wan_rule_up "$WAN_RULE_CONNECTED" lookup main suppress_prefixlength 0 && wan_rule_up "$2" lookup "$2"
}

# wan_rule_up PREFERENCE RULE...
wan_rule_up() {
    ! wan_has_rule "$1" || return 0
    if ! reason=$(ip -4 rule add pref "$@" 2>&1); then
        wan_error "no policy rule $*: $reason"
        return 1
    fi
}

# wan_route_down DEVICE P. The rule stays: with its table empty it is passed over, and at this very moment the daemon
# may be setting it for another protocol of the same WAN.
wan_route_down() {
    ! wan_is_number "$2" || wan_default_remove "$1" "$2"
}

wan_resolver_path() {
    # Where a caching resolver reads its upstream servers from, else the system's own file, or what that leads to.
    if is_roots_folder /tmp/resolv.conf.d; then
        echo /tmp/resolv.conf.d/resolv.conf.auto
    elif [ -L /etc/resolv.conf ]; then
        link_target /etc/resolv.conf
    else
        echo /etc/resolv.conf
    fi
}

# Writes the resolver's file from the servers of all WANs, those of the smallest P first. What is in its place counts only
# when it is a file of root's: in /tmp everybody can be first, and a link leads anywhere.
wan_resolver_write() {
    target=$(wan_resolver_path)
    if ! is_safe_folder "${target%/*}"; then
        wan_error "$target is not written: others could lead it elsewhere"
        return 1
    fi
    case $(file_facts "$target") in
    '' | -?????????' 0') ;;
    *)
        wan_error "$target is not written: what is in its place is not a file of root's"
        return 1
        ;;
    esac
    if grep -q " $target " /proc/self/mounts; then
        wan_servers | rewrite_mounted_file "$target"
    else
        wan_servers | replace_file "$target" 644
    fi
}

wan_servers() {
    for servers in "$WAN_DNS"/[0-9]*; do
        [ ! -e "$servers" ] || cat "$servers"
    done
}

# wan_dns NAME PROTOCOL [P SERVER...]: the servers of this WAN are now these; with PROTOCOL alone, those that this protocol
# set are no longer. The client of the WAN's next protocol may have set its own by then.
wan_dns() (
    umask 022
    make_folder "$WAN_DNS" && take_lock "$WAN_DNS" || exit 1
    name=$1 protocol=$2 p=$3
    if [ $# -gt 2 ]; then
        shift 3
        own=$WAN_DNS/$p.$protocol.$name
        for server in "$@"; do
            echo "nameserver $server"
        done | replace_file "$own" 644 || exit 1
        for old in "$WAN_DNS"/[0-9]*.dhcp."$name" "$WAN_DNS"/[0-9]*.pppoe."$name"; do
            [ "$old" = "$own" ] || rm -f "$old"
        done
    else
        rm -f "$WAN_DNS"/[0-9]*."$protocol.$name"
    fi
    wan_resolver_write
)
