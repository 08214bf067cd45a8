#!/bin/bash
# fetch.sh SET... - download and unpack what the small machine needs. No root, no dpkg.
#
#   sets: qemu-x86 qemu-mips (emulators)   guest-amd64 guest-mipsel (kernel and userland of the machine)
#         sysroot-mipsel (libraries to cross-build against: cmake --preset mipsel)
#
# Result: $LAB_VM_CACHE/debs/SET/*.deb     (the downloads; the thing to cache)
#         $LAB_VM_CACHE/tools/             (emulators, one common prefix)
#         $LAB_VM_CACHE/root/SET/          (unpacked guest packages)
# A set with an up-to-date stamp is skipped, so a warm cache costs nothing and no network.
# LAB_VM_REFRESH=1 asks the archive again.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# Packages the dependency resolver would add to a guest but no test needs.
# build-initramfs.sh checks with readelf that every library it needs is there,
# so an exclusion too many is an error at build time, not a surprise in the VM.
GUEST_DROP='^(perl.*|libperl.*|debconf.*|usrmerge|libpam-(modules|modules-bin|runtime)|dpkg|tar|init-system-helpers|libfile-find-rule-perl|libnumber-compare-perl|libtext-glob-perl|libgdbm.*|netbase|procps|libproc2-0|libncursesw6|libtinfo6|libcap2-bin|libtirpc-common|libaudit-common|initramfs-tools.*|klibc-utils|libklibc|kmod|libkmod2|linux-base|udev|libudev1|coreutils|cpio|util-linux.*|mount|logsave|e2fsprogs|adduser|passwd|systemd.*|lsb-base|sysvinit-utils|dns-root-data|runit-helper|libattr1|libsemanage.*|libsepol2|login|gcc-12-base|busybox|zstd|liburing2|libblkid1|libmount1|libuuid1|libsmartcols1)$'

guest_pkgs() {   # ARCH KERNEL-META : the package names wanted in a guest
    local k
    # the meta package's dependency is the real, versioned image
    k=$(papt "$1" apt-cache depends "$2" | sed -n 's/^ *Depends: \(linux-image-.*\)/\1/p' | head -1)
    [ -n "$k" ] || die "no kernel behind $2"
    echo "$k busybox-static iproute2 iptables ppp pppoe dnsmasq-base tcpdump udhcpc udhcpd libstdc++6 strace dash libmnl0 libjson-c5 libsqlite3-0"
}

fetch() {        # SET STATE-ARCH "PKGS" DROP-REGEX UNPACK-DIR
    local set=$1 arch=$2 pkgs=$3 drop=$4 out=$5
    local debs=$LAB_VM_CACHE/debs/$set stamp=$LAB_VM_CACHE/debs/$set/.done want
    # another choice of packages, or another release, is another set
    want=$(declare -f guest_pkgs; echo "$pkgs $drop $LAB_VM_RELEASE")
    if [ "$(cat "$stamp" 2>/dev/null)" = "$want" ] && [ -z "${LAB_VM_REFRESH:-}" ]; then
        [ -e "$out/.unpacked-$set" ] || unpack "$set" "$out"
        return
    fi
    local t0=$SECONDS; mkdir -p "$debs"
    # errors from here on name the set that is missing
    lacking="$set (${pkgs#@guest:})"
    local updated=$LAB_VM_CACHE/apt/$arch-$LAB_VM_RELEASE/.updated
    [ -e "$updated-$$" ] || {
        papt "$arch" apt-get -qq -o APT::Update::Error-Mode=any update; rm -f "$updated"-*; : > "$updated-$$"; }
    case $pkgs in @guest:*) pkgs=$(guest_pkgs "$arch" "${pkgs#@guest:}") ;; esac
    # one line per file: 'URL' NAME SIZE HASH
    # "reinstall": of what this machine has, its libraries are as good, but not what the set is for
    papt "$arch" apt-get install --reinstall --print-uris -qq $pkgs |
        while read -r url name size hash; do
            [[ ${name%%_*} =~ $drop ]] || echo "$name $size $hash $url"
        done > "$debs/.list"
    # apt verified the index that these hashes come from; "apt-get download"
    # checks each file against it
    (cd "$debs" && awk '{print $1}' .list | sed 's/_.*//' | xargs env \
        bash -c '. "$0"; papt "$1" apt-get -qq download "${@:2}"' \
        "$LAB_VM_HOME/common.sh" "$arch")
    # drop files of an earlier version
    (cd "$debs"; for f in *.deb; do grep -q "^$f " .list || rm -f "$f"; done)
    awk -v s="$set" '{n++; b+=$2} END {printf "fetch %s: %d files, %.1f MB", s, n, b/1e6}' "$debs/.list"
    rm -f "$out/.unpacked-$set"
    unpack "$set" "$out"; echo "$want" > "$stamp"
    lacking=
    echo ", $((SECONDS - t0)) s"
}

unpack() {       # SET DIR
    # a set has its folder to itself, but for the emulators of one release, which share one
    case $2 in "$LAB_VM_CACHE"/root/*) rm -rf "$2" ;; esac
    [ "$(cat "$2/.release" 2>/dev/null)" = "$LAB_VM_RELEASE" ] || rm -rf "$2"
    mkdir -p "$2"; echo "$LAB_VM_RELEASE" > "$2/.release"
    local f
    for f in "$LAB_VM_CACHE/debs/$1"/*.deb; do dpkg-deb -x "$f" "$2"; done
    : > "$2/.unpacked-$1"
}

lacking=
cannot() {
    [ -z "$lacking" ] || die "the packages of $lacking are not in the cache $LAB_VM_CACHE and could not be fetched;" \
        "give this machine its network once, or a cache that is filled (IVARODE_LAB_CACHE)"
}
trap cannot EXIT

sets="qemu-x86 qemu-mips guest-amd64 guest-mipsel sysroot-mipsel"
[ $# -gt 0 ] || die "usage: fetch.sh SET..., of $sets"
case $1 in -h | --help) echo "usage: fetch.sh SET..., of $sets"; exit 0 ;; esac
for s; do
    case $s in
    qemu-x86)  fetch $s host "qemu-system-x86"  '^ipxe-qemu$' "$LAB_VM_CACHE/tools" ;;
    qemu-mips) fetch $s host "qemu-system-mips" '^$' "$LAB_VM_CACHE/tools" ;;
    guest-amd64)       fetch $s amd64  "@guest:linux-image-amd64" "$GUEST_DROP" "$LAB_VM_CACHE/root/$s" ;;
    # the compiler brings its own C library
    sysroot-mipsel)    fetch $s mipsel "libmnl-dev libjson-c-dev" \
                           '^(libc6.*|libc-dev-bin|linux-libc-dev|libcrypt.*|gcc-12-base|libgcc-s1|rpcsvc-proto|libnsl.*|libtirpc.*)$' \
                           "$LAB_VM_CACHE/root/$s" ;;
    guest-mipsel)      fetch $s mipsel "@guest:linux-image-4kc-malta" "$GUEST_DROP" "$LAB_VM_CACHE/root/$s" ;;
    *) die "unknown set $s; there are $sets" ;;
    esac
done
