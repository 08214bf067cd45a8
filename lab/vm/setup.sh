#!/bin/bash
# setup.sh [-s] TARGET... - everything the small machine needs for TARGET (x86 | mipsel).
# Does nothing (about 10 ms, no network) when the image was made by these very scripts. -s (slim) afterwards
# removes what only the build needed, so that the cache is just $LAB_VM_CACHE/{image,tools}.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"
here=$LAB_VM_HOME
slim=; [ "${1:-}" != -s ] || { slim=1; shift; }
key=$LAB_VM_RELEASE-$(cat "$here"/{common.sh,fetch.sh,build-image.sh,mkcpio.py,unbz.py,guest/init} | sha256sum | cut -c1-32)
mkdir -p "$LAB_VM_CACHE"
exec 9> "$LAB_VM_CACHE/.lock"; flock 9          # one set-up at a time per cache
for t; do
    stamp=$LAB_VM_CACHE/image/$t/.setup
    if [ "$(cat "$stamp" 2>/dev/null)" = "$key" ]; then echo "image $t: cached"; continue; fi
    case $t in
    x86)    "$here/fetch.sh" qemu-x86 guest-amd64 ;;
    mipsel) "$here/fetch.sh" qemu-mips guest-mipsel ;;
    *) die "unknown target $t" ;;
    esac
    "$here/build-image.sh" "$t"
    echo "$key" > "$stamp"
done
[ -z "$slim" ] || rm -rf "$LAB_VM_CACHE"/{apt,debs,root}
