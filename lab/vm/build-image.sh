#!/bin/bash
# build-image.sh TARGET - make the guest image for one target. No root.
#
#   TARGET: x86 | mipsel
#
# Out:  $LAB_VM_CACHE/image/TARGET/kernel         what to boot (PVH ELF on x86)
#       $LAB_VM_CACHE/image/TARGET/initramfs.cpio uncompressed on purpose: unpacking
#                                              gzip costs seconds under emulation
# The image is generic: the project's programs are NOT in it, they come in through
# a shared directory, so the image only changes when packages or this directory
# change. It is rebuilt only then (a hash of the inputs is kept beside it).
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"
here=$LAB_VM_HOME
target=${1:-}

# Kernel modules wanted (their dependencies are added). Names as in lsmod.
MODULES="
8021q bridge veth tun dummy ifb macvlan
ppp_generic ppp_async ppp_synctty ppp_deflate bsd_comp ppp_mppe pppox pppoe
ip_tables iptable_filter iptable_nat iptable_mangle iptable_raw
ip6_tables ip6table_filter ip6table_mangle
nf_conntrack nf_nat nf_conntrack_netlink nf_log_syslog
xt_MASQUERADE xt_TCPMSS xt_conntrack xt_nat xt_mark xt_connmark xt_comment
xt_multiport xt_tcpudp xt_LOG xt_limit xt_state xt_REDIRECT xt_mac
xt_addrtype xt_policy xt_CLASSIFY xt_DSCP xt_dscp xt_length xt_string
ipt_REJECT nf_tables nft_compat nft_chain_nat
sch_htb sch_ingress sch_fq_codel sch_sfq cls_u32 cls_fw act_mirred
"
# Loaded first, in this order, so that the shared directories can be mounted.
BOOT_MODULES="virtio_pci virtio_rng virtio_console 9pnet_virtio 9p"
MAYBE_MODULES="overlay ipv6"         # wanted if the kernel has them as modules
# In the image for autoloading, but not loaded at boot: br_netfilter sends bridged
# frames through iptables as soon as it is there.
AUTO_MODULES="br_netfilter xt_physdev"

# Programs wanted (paths in the unpacked packages). Their libraries are added.
# /bin/sh is dash: Debian's busybox sh prefers its applets (ip, tc, ...) over the
# real programs in PATH, whatever PATH says.
PROGRAMS="
/bin/dash /bin/busybox /bin/ip /bin/ss /sbin/tc /sbin/bridge
/usr/sbin/xtables-legacy-multi /usr/sbin/xtables-nft-multi
/usr/sbin/pppd /usr/sbin/chat /usr/sbin/pppoe /usr/sbin/pppoe-server
/usr/sbin/pppoe-discovery /usr/sbin/pppoe-sniff
/usr/sbin/dnsmasq /usr/bin/tcpdump /usr/bin/strace
"

# The programs of the lab need the C and C++ libraries of the compiler that builds them. That of x86 is as old as the
# packages; that of MIPS may be newer than they are, and brings its own.
case $target in
x86)    set=guest-amd64  kroot=$LAB_VM_CACHE/root/guest-amd64 compiler= ;;
mipsel) set=guest-mipsel kroot=$LAB_VM_CACHE/root/guest-mipsel compiler=/usr/mipsel-linux-gnu/lib ;;
*) die "usage: build-image.sh x86|mipsel" ;;
esac
src=$LAB_VM_CACHE/root/$set
[ -d "$src" ] && [ -d "$kroot" ] || die "run fetch.sh first ($set)"
out=$LAB_VM_CACHE/image/$target
mapfile -t own < <(ls -d "${compiler:-/nowhere}"/lib{c,stdc++}.so.6 2>/dev/null)
key=$(cat "$LAB_VM_CACHE/debs/$set/.list" "$here/build-image.sh" "$here/mkcpio.py" "$here/guest/init" "${own[@]}" \
      | sha256sum | cut -c1-32)
if [ "$(cat "$out/.key" 2>/dev/null)" = "$key" ]; then echo "image $target: up to date"; exit 0; fi
t0=$(date +%s%N)
rm -rf "$out"; tree=$out/tree unpacked=$out/modules; mkdir -p "$tree" "$unpacked"
mkdir -p "$tree"/{proc,sys,dev,tmp,run,root,mnt,share,prog,etc/ppp/plugins,etc/udhcpc,var/{lib/misc,log},usr/{bin,sbin,lib,lib64,share}}
for d in bin sbin lib lib64; do ln -s "usr/$d" "$tree/$d"; done

# --- programs and libraries -------------------------------------------------
# All libraries go to where the packages have them; a NEEDED entry that no
# package provides stops the build.
mapfile -t libdirs < <(cd "$src" && find . -name '*.so*' \( -type f -o -type l \) -printf '%h\n' | sed 's/^\.//' | sort -u |
    grep -E '^(/usr)?/lib/[^/]*-linux-gnu[^/]*$|^(/usr)?/lib$')
declare -A have=()
copy() {    # PATH-IN-SRC : copy keeping symlinks, then what it needs
    local p=$1 f link n
    # all of it goes below /usr; packages of older systems have a part of it outside
    case $p in /bin/* | /sbin/* | /lib/* | /lib64/*) p=/usr$p ;; esac
    f=$src$p
    [ -e "$f" ] || [ -L "$f" ] || f=$src${p#/usr}
    [ -z "${have[$p]:-}" ] || return 0
    have[$p]=1
    [ -z "$compiler" ] || [ ! -f "$compiler/${p##*/}" ] || f=$(realpath "$compiler/${p##*/}")
    [ -e "$f" ] || [ -L "$f" ] || die "no $p in $set"
    mkdir -p "$tree${p%/*}"
    cp -d --preserve=mode "$f" "$tree$p"
    if [ -L "$f" ]; then
        link=$(readlink "$f"); case $link in /*) copy "$link";; *) copy "$(realpath -ms --relative-to=/ "/${p%/*}/$link" | sed 's#^#/#')";; esac
        return 0
    fi
    while read -r n; do lib "$n" "$p"; done < <(needed "$f")
}
needed() { # ELF : names of libraries and the dynamic loader
    readelf -dl "$1" 2>/dev/null | sed -n \
        -e 's/.*(NEEDED).*\[\(.*\)\]/\1/p' \
        -e 's/.*Requesting program interpreter: \(.*\)\]/\1/p'
}
lib() {    # NAME-OR-PATH NEEDED-BY
    local d
    case $1 in /*)      # the loader, e.g. /lib/ld.so.1 or /lib64/ld-linux-x86-64.so.2
        copy "$1"; return ;;
    esac
    for d in "${libdirs[@]}"; do
        if [ -e "$src$d/$1" ] || [ -L "$src$d/$1" ]; then copy "$d/$1"; return; fi
    done
    die "library $1 (needed by $2) is in no unpacked package"
}
for p in $PROGRAMS; do copy "$p"; done
for l in libstdc++.so.6 libgcc_s.so.1 libatomic.so.1 libm.so.6 libpthread.so.0 librt.so.1 libdl.so.2 libresolv.so.2 libmnl.so.0 libjson-c.so.5 libsqlite3.so.0 \
         libnss_files.so.2 libnss_dns.so.2; do
    for d in "${libdirs[@]}"; do [ ! -e "$src$d/$l" ] || { copy "$d/$l"; break; }; done
done
for f in "$src"/usr/lib/*/xtables/*.so "$src"/usr/lib/pppd/*/{rp-pppoe,pppoe}.so; do copy "${f#"$src"}"; done
for a in iptables iptables-save iptables-restore ip6tables ip6tables-save ip6tables-restore; do
    # the legacy (x_tables) flavour, as on routers; iptables-nft is there as well
    ln -s xtables-legacy-multi "$tree/usr/sbin/$a"
    ln -s xtables-nft-multi "$tree/usr/sbin/${a/tables/tables-nft}"
done
ln -s dash "$tree/bin/sh"
ln -s /run "$tree/var/run"      # as on Debian: a program with its own /run has its own /var/run
[ -e "$tree/sbin/ip" ] || ln -s ../bin/ip "$tree/sbin/ip"
cp -a "$src"/etc/{protocols,services} "$tree/etc/" 2>/dev/null || true
ln -sf "$(cd "$tree" && echo /usr/lib/pppd/*/rp-pppoe.so)" "$tree/etc/ppp/plugins/rp-pppoe.so"
cat > "$tree/etc/passwd" <<< $'root:x:0:0:root:/root:/bin/sh\nnobody:x:65534:65534::/:/bin/false\ndnsmasq:x:101:65534::/:/bin/false\ntcpdump:x:102:65534::/:/bin/false'
cat > "$tree/etc/group"  <<< $'root:x:0:\nnogroup:x:65534:\ndip:x:30:'
echo '127.0.0.1 localhost' > "$tree/etc/hosts"
echo 'hosts: files dns' > "$tree/etc/nsswitch.conf"
: > "$tree/etc/ppp/options"; : > "$tree/etc/resolv.conf"
(umask 077; : > "$tree/etc/ppp/chap-secrets"; : > "$tree/etc/ppp/pap-secrets")
install -m755 "$here/guest/init" "$tree/init"

# --- kernel modules ---------------------------------------------------------
# No depmod needed: dependencies and aliases are read from .modinfo (readelf
# reads any architecture). modules.dep/modules.alias let the kernel autoload;
# modules.boot and modules.load are load orders for init.
mdir=$(for m in "$kroot"/lib/modules/* "$kroot"/usr/lib/modules/*; do [ ! -d "$m" ] || echo "$m"; done)
kver=${mdir##*/}
md=$tree/lib/modules/$kver; mkdir -p "$md"
declare -A mpath=() mdep=() mseen=()
while read -r f; do n=${f##*/}; n=${n%.ko*}; mpath[${n//-/_}]=$f; done < <(find "$mdir" -name '*.ko' -o -name '*.ko.xz')
builtin=" $(sed -n 's#.*/\(.*\)\.ko$#\1#p' "$mdir/modules.builtin" 2>/dev/null | tr '\n-' ' _') "
order=()
addmod() {  # NAME WANTED-BY : depth first, so "order" is a valid load order
    local n=${1//-/_} f d info
    [ -z "${mseen[$n]:-}" ] || return 0
    mseen[$n]=1
    f=${mpath[$n]:-}
    # a soft dependency names an algorithm (crc32c); its plain C version will do
    [ -n "$f" ] || { [ -z "${mpath[${n}_generic]:-}" ] || { n=${n}_generic; f=${mpath[$n]}; mseen[$n]=1; }; }
    if [ -z "$f" ]; then
        case $builtin in *" $n "*) return 0 ;; esac
        [ "$2" = maybe ] || echo "  note: kernel $kver has no module $n${2:+ (for $2)}" >&2
        return 0
    fi
    case $f in *.xz) python3 -c 'import lzma, sys; sys.stdout.buffer.write(lzma.open(sys.argv[1]).read())' "$f" > "$unpacked/$n.ko"; f=$unpacked/$n.ko ;; esac
    info=$(readelf -p .modinfo "$f" 2>/dev/null | sed -n 's/^ *\[ *[0-9a-f]*\] *//p')
    mdep[$n]=$(sed -n 's/^depends=//p' <<< "$info" | tr ',-' ' _')
    for d in ${mdep[$n]} $(sed -n 's/^softdep=pre: *//p' <<< "$info"); do addmod "$d" "$n"; done
    install -m644 "$f" "$md/$n.ko"
    sed -n "s/^alias=\(.*\)/alias \1 $n/p" <<< "$info" >> "$md/modules.alias"
    order+=("$n")
}
for m in $BOOT_MODULES; do addmod "$m" ""; done
nboot=${#order[@]}; : > "$md/modules.boot"; [ $nboot = 0 ] || printf "%s\n" "${order[@]}" > "$md/modules.boot"
for m in $MAYBE_MODULES; do addmod "$m" maybe; done
for m in $MODULES; do addmod "$m" ""; done
printf '%s\n' "${order[@]:nboot}" > "$md/modules.load"
for m in $AUTO_MODULES; do addmod "$m" ""; done
chain() { local d; for d in ${mdep[$1]:-}; do d=${d//-/_}; [ ! -e "$md/$d.ko" ] || { echo -n " $d.ko"; chain "$d"; }; done; }
for n in "${order[@]}"; do echo "$n.ko:$(chain "$n")"; done > "$md/modules.dep"
: > "$md/modules.symbols"; touch "$md/modules.alias"

# --- kernel -----------------------------------------------------------------
case $target in
x86)   # the ELF inside bzImage boots through PVH: no decompression in the guest
    python3 "$here/unbz.py" "$kroot"/boot/vmlinuz-* "$out/kernel" ;;
mipsel) python3 "$here/unbz.py" "$kroot"/boot/vmlinuz-* "$out/kernel" 2>/dev/null || cp "$kroot"/boot/vmlinuz-* "$out/kernel" ;;
esac

python3 "$here/mkcpio.py" "$tree" "$out/initramfs.cpio"
rm -rf "$tree" "$unpacked"
echo "$key" > "$out/.key"
printf 'image %s: kernel %s, %d modules, initramfs %.1f MB, built in %.1f s\n' "$target" "$kver" "${#order[@]}" \
    "$(stat -c %s "$out/initramfs.cpio" | awk '{print $1/1e6}')" "$(( ($(date +%s%N) - t0) / 1000000 ))e-3"
