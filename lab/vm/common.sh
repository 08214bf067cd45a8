# shellcheck shell=bash
# common.sh - settings shared by all the scripts here (sourced, not run).
#
# Nothing in this set needs root and nothing touches the system's dpkg state:
# packages are fetched with a PRIVATE apt directory and unpacked with dpkg-deb
# below $LAB_VM_CACHE. Delete $LAB_VM_CACHE to start from scratch; keep it (CI cache)
# and no step uses the network any more.
LAB_VM_HOME=${LAB_VM_HOME:-$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)}
LAB_VM_CACHE=${IVARODE_LAB_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/ivarode-lab}
# A cache may outlive the system that filled it: programs of the lab need a machine of their own age.
LAB_VM_RELEASE=$(. /etc/os-release && echo "${VERSION_CODENAME:-unknown}")
# The last release with packages for little-endian MIPS of 32 bits.
LAB_VM_MIPSEL_RELEASE=bookworm
# apt lines read by the private apt; the keyring is the system's Debian keyring
LAB_VM_KEYRING=${LAB_VM_KEYRING:-/usr/share/keyrings/debian-archive-keyring.gpg}

die() { echo "$(basename "$0"): $*" >&2; exit 125; }

# papt ARCH CMD... : apt-get/apt-cache CMD with a private state for ARCH.
# First word of CMD is the program ("apt-get" or "apt-cache"). ARCH "host" means
# amd64 with the system's dpkg status (only read), so that libraries the machine
# already has are not downloaded again.
papt() {
    local state=$1 prog=$2 arch=$1 status; shift 2
    local d=$LAB_VM_CACHE/apt/$state-$LAB_VM_RELEASE release=
    status=$d/state/status
    [ "$arch" != mipsel ] || release=$LAB_VM_MIPSEL_RELEASE
    [ "$state" != host ] || { arch=$(dpkg --print-architecture); status=/var/lib/dpkg/status; }
    if [ ! -s "$d/etc/sources.list" ]; then
        mkdir -p "$d"/etc/{apt.conf.d,preferences.d,sources.list.d,trusted.gpg.d} \
                 "$d"/state/lists/partial "$d"/cache/archives/partial "$d"/log
        : > "$d/state/status"          # an empty dpkg status: nothing installed
        # the archives this machine itself uses (run "apt-get update" once before), of its own or the given release
        apt-get indextargets --format '$(REPO_URI) $(CODENAME) $(COMPONENT) $(ORIGIN)' 'Identifier: Packages' |
            sort -u | awk -v k="$LAB_VM_KEYRING" -v r="$release" '$4 == "Debian" {
                if (r != "") sub(/^[^-]*/, r, $2); print "deb [signed-by=" k "]", $1, $2, $3}' \
            > "$d/etc/sources.list"
        [ -s "$d/etc/sources.list" ] || die "apt knows no Debian archive yet: run apt-get update"
        cat > "$d/apt.conf" <<CONF
Dir::Etc "$d/etc";
Dir::State "$d/state";
Dir::State::status "$status";
Dir::Cache "$d/cache";
Dir::Log "$d/log";
APT::Architecture "$arch";
APT::Architectures { "$arch"; };
APT::Install-Recommends "false";
APT::Get::Assume-Yes "true";
Acquire::Languages "none";
Acquire::IndexTargets::deb::DEP-11 { DefaultEnabled "false"; };
APT::Sandbox::User "";
Acquire::GzipIndexes "true";
Acquire::Retries "1";
Acquire::http::Timeout "20";
Acquire::https::Timeout "20";
$(apt-config dump | grep -E '^Acquire::[a-z]+::[Pp]roxy')
CONF
    fi
    # an empty config parts dir keeps /etc/apt/apt.conf.d (hooks etc.) out
    APT_CONFIG=$d/apt.conf "$prog" -o Dir::Etc::parts="$d/etc/apt.conf.d" \
        -o Dir::Etc::sourcelist="$d/etc/sources.list" \
        -o Dir::Etc::sourceparts="$d/etc/sources.list.d" "$@"
}
