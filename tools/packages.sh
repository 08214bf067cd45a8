# shellcheck shell=bash
# Packages of Debian 12 and 13 for the commands of this folder's parent (sourced, not run).

# What the daemon, the platform library, the stand-ins and the lab are built with.
BUILD_PACKAGES="g++ cmake ninja-build libmnl-dev libjson-c-dev libsqlite3-dev python3"
# What the virtual board needs beside the build: the tools inside it and, where the kernel lacks something, the
# small machine around it (whose own packages are fetched into a cache, not installed).
LAB_PACKAGES="iproute2 iptables dnsmasq-base ppp pppoe busybox-static tcpdump"
# What the tests need beside these.
TEST_PACKAGES="ccache libgtest-dev libgmock-dev python3-pytest python3-prometheus-client shellcheck clang make musl-tools libfaketime"

# What the board as a MIPS machine is built with, beside these.
CROSS_PACKAGES="g++-mipsel-linux-gnu"
# For the tests on MIPS, which are skipped without them. Continuous integration installs them.
MIPS_PACKAGES="$CROSS_PACKAGES g++-mips-linux-gnu qemu-user"
# For analysis, counting instructions and checking packages, which are skipped without them. Continuous integration installs these, too.
ANALYSIS_PACKAGES="clang-tidy cppcheck valgrind mypy flake8 groff lintian"
# For the tests of the page in a browser, which are skipped without them. Continuous integration installs these, too.
WEB_PACKAGES="chromium chromium-driver"

# how_far: on a terminal, one line of how far apt-get is by its own account, which it gives with APT::Status-Fd. Shell,
# because the interpreter of all else may be among the packages.
how_far() {
    local kind percent bar at able=
    if [ -t 1 ] && [ "${TERM:-dumb}" != dumb ]; then able=1; fi
    while IFS=: read -r kind _ percent _; do
        case $able$kind in
        1dlstatus) kind=fetching ;;
        1pmstatus) kind=installing ;;
        *) continue ;;
        esac
        bar=
        for ((at = 5; at <= 100; at += 5)); do
            if [ "${percent%%.*}" -ge "$at" ]; then bar+=█; else bar+=░; fi
        done
        printf '\r\033[Kpackages: %s  %s  %s %%' "$kind" "$bar" "${percent%%.*}"
    done
    if [ -n "$able" ]; then printf '\r\033[K'; fi
}

# need_packages NAME...: installs those that are missing, and says so.
need_packages() {
    local missing=() package sudo=()
    for package; do
        [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
    done
    if [ ${#missing[@]} = 0 ]; then
        echo "packages: all installed"
        return 0
    fi
    echo "packages: installing ${missing[*]}"
    if [ "$(id -u)" != 0 ]; then
        command -v sudo >/dev/null || {
            echo "packages: not root and no sudo; install them yourself: apt-get install ${missing[*]}" >&2
            return 1
        }
        sudo=(sudo)
    fi
    "${sudo[@]}" apt-get -qq update || true         # what it knows already may do
    if ! (set -o pipefail
        "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq install -y --no-install-recommends \
            -o APT::Status-Fd=1 "${missing[@]}" | how_far); then
        echo "packages: could not be installed: ${missing[*]}" >&2
        return 1
    fi
}
