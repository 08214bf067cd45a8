# shellcheck shell=sh
# What ip-up and ip-down of pppd share. Sourced with the words that pppd gives its scripts:
# DEVICE TTY SPEED LOCAL REMOTE IPPARAM.
#
# "pppoec,N" is a WAN that the interface manager dials, N its number. Any other link with an authenticated peer
# is somebody dialling in; its ipparam is TYPE or TYPE,ADDRESS: the kind of access, and where the peer calls from.

# shellcheck source=image/files/lib/ivarode/wan.sh
. /lib/ivarode/wan.sh

# shellcheck disable=SC2034  # used by who sources this
ppp_device=$1 ppp_local=$4 ppp_remote=$5 ppp_param=$6

if ! wan_is_name "$ppp_device"; then
    wan_error "a PPP link of no device: $ppp_device"
    exit 1
fi
wan_state_is_roots || exit 1

ppp_wan_number() {
    case $ppp_param in
    pppoec, | pppoec,*[!0-9]* | pppoec,??????*) wan_error "$ppp_device: $ppp_param names no number of a WAN" ;;
    pppoec,*)
        echo "${ppp_param#pppoec,}"
        return
        ;;
    esac
    return 1
}

# What goes into the records must not mean anything to their language.
ppp_is_record_text() {
    case $1 in *[!A-Za-z0-9.:@_+/-]*) return 1 ;; esac
    [ ${#1} -le 64 ]
}

# ppp_notify up|down: tells the interface manager of a login or logout.
ppp_notify() {
    [ -n "$PEERNAME" ] || return 0
    type=${ppp_param%%,*}
    caller=
    case $ppp_param in *,*) caller=${ppp_param#*,} ;; esac
    for text in "${type:=ppp}" "$PEERNAME" "$ppp_remote" "$MACREMOTE" "$caller"; do
        if ! ppp_is_record_text "$text"; then
            wan_error "$ppp_device: no $1 record, its texts hold more than names and addresses"
            return 1
        fi
    done
    ubus -t 5 call ivarode.pppauth notify "{\"type\":\"$type\",\"username\":\"$PEERNAME\",\"action\":\"$1\",\
\"ipaddr\":\"$ppp_remote\",\"dial_mac\":\"$MACREMOTE\",\"dial_ip\":\"$caller\"}" ||
        wan_error "$ppp_device: the $1 of $PEERNAME could not be recorded"
}
