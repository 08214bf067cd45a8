# shellcheck shell=sh
# Addresses that a DHCP server or PPP peer names, and what is wrong with them. Sourced.
#
# For any awk: that of busybox may be built without powers, which is an error where it comes to one.

# wan_is_host ADDRESS: dotted, and one that a host can have: not of 0/8 or 127/8, no multicast, no broadcast, nothing behind.
wan_is_host() {
    case $1 in
    *[!0-9.]* | *.*.*.*.* | .* | *. | *..* | ????????????????*) return 1 ;;
    *.*.*.*) ;;
    *) return 1 ;;
    esac
    rest=$1.
    while [ -n "$rest" ]; do
        part=${rest%%.*}
        rest=${rest#*.}
        case $part in 0?* | ????*) return 1 ;; esac
        [ "$part" -le 255 ] || return 1
    done
    part=${1%%.*}
    [ "$part" -gt 0 ] && [ "$part" -ne 127 ] && [ "$part" -lt 224 ]
}

# wan_hosts TEXT: the words of the text that are such addresses.
wan_hosts() (
    set -f
    # shellcheck disable=SC2086  # a list of words
    for word in $1; do
        ! wan_is_host "$word" || echo "$word"
    done
)

# wan_prefix PREFIX MASK: the length of the mask, from either; 24 where the server names none.
wan_prefix() {
    case $1-$2 in
    - | 24-) echo 24 ;;
    [0-9]-* | [12][0-9]-* | 3[0-2]-*) echo "$1" ;;
    -*[!0-9.]* | -????????????????*) return 1 ;;
    -*) echo "$2" | awk -F . '
        NF == 4 {
            for (i = 1; i <= 4; i++) { if ($i !~ /^[0-9]+$/ || $i > 255) exit 1; mask = mask * 256 + $i }
            hosts = 1
            for (bits = 32; bits >= 0; bits--) {
                if (mask == 4294967296 - hosts) { print bits; good = 1 }
                hosts *= 2
            }
        }
        END { exit !good }' ;;
    *) return 1 ;;
    esac
}

# wan_address_fault DEVICE ADDRESS PREFIX: what keeps the device from having it, in words, or nothing. A network that another
# device has is the most important: its stations would be looked for behind the server that named it.
wan_address_fault() {
    if ! wan_is_host "$2"; then
        echo "it is not the address of a host"
    elif [ "$3" -lt 8 ]; then
        echo "its mask is shorter than 8"
    else
        ip -4 -o addr show | awk -v own="$1" -v address="$2" -v prefix="$3" '
            function number(text, part) {
                split(text, part, ".")
                return ((part[1] * 256 + part[2]) * 256 + part[3]) * 256 + part[4]
            }
            function hosts(bits, count) {
                for (count = 1; bits < 32; bits++) count *= 2
                return count
            }
            function network(host, bits) { return int(host / hosts(bits)) }
            BEGIN {
                host = number(address)
                left = host - network(host, prefix) * hosts(prefix)
                if (prefix < 31 && (left == 0 || left == hosts(prefix) - 1)) fault = "it is that of its whole network"
            }
            {
                sub(/@.*/, "", $2)
                # "ADDRESS/PREFIX", or "ADDRESS peer ADDRESS/32" of a link
                bits = split($4, other, "/") == 2 ? other[2] : 32
                shared = bits + 0 < prefix + 0 ? bits : prefix
                if (fault == "" && $2 != own && network(number(other[1]), shared) == network(host, shared))
                    fault = "it overlaps " $4 " on " $2
            }
            END { if (fault != "") print fault }' || echo "it cannot be compared with those of other devices"
    fi
}
