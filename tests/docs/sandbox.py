"""A private root and network in which the scripts of image/files run as they do on a router.

The root holds the image's files over this machine's programs; /etc, /run, /tmp and /lib/ivarode are its own. Commands
run in a network of their own too, with /dev/log absent: "logger" and "ubus" are replaced by recorders.
"""

from __future__ import annotations

import os
import pathlib
import shlex
import subprocess
from collections.abc import Iterable

ROOT = pathlib.Path(__file__).resolve().parents[2]
IMAGE = ROOT / "image/files"

# Made inside the new name spaces, where mounting touches nobody else.
ENTER = """
set -eu
root=$1
shift
mount -t tmpfs root "$root"
mkdir -p "$root"/usr/share "$root"/dev "$root"/proc "$root"/sys "$root"/run "$root"/tmp "$root"/etc "$root"/var "$root"/root \\
    "$root"/lib/ivarode "$root"/sbin
ln -s /run "$root"/var/run
ln -s usr/bin "$root"/bin
for name in /usr/lib/*; do [ "${name##*/}" = ivarode ] || ln -s "$name" "$root/lib/${name##*/}"; done
for name in /usr/lib64 /usr/lib32; do [ ! -e "$name" ] || ln -s "$name" "$root/${name##*/}"; done
for name in /usr/sbin/*; do [ "${name##*/}" = udhcpc ] || ln -s "$name" "$root/sbin/${name##*/}"; done
for name in bin sbin lib lib64 lib32; do
    [ ! -d "/usr/$name" ] || { mkdir "$root/usr/$name"; mount --bind -o ro "/usr/$name" "$root/usr/$name"; }
done
for name in passwd group alternatives protocols services ethertypes ld.so.cache; do
    [ ! -e "/etc/$name" ] || cp -a "/etc/$name" "$root/etc/$name"
done
mount --rbind /dev "$root"/dev
mount -t proc proc "$root"/proc
mount -t sysfs sysfs "$root"/sys
cp -a "$IMAGE"/. "$root"/
chmod 1777 "$root"/tmp
mkdir "$root"/stub
for name in logger ubus; do
    printf '#!/bin/sh\\necho "%s $*" >>/root/calls\\n' "$name" >"$root/stub/$name"
    chmod 755 "$root/stub/$name"
done
: >"$root"/root/calls
: >"$root"/etc/resolv.conf
printf '%s' "$FILES" | while read -r file; do cp "$file" "$root"/stub; done
exec chroot "$root" /usr/bin/env -i PATH=/stub:/usr/sbin:/usr/bin:/sbin:/bin sh -eu -c "$@"
"""


# Makes "ubus" list instances of two services, as the supervisor does in one line; one of them is not a WAN's.
SUPERVISOR = r"""
cat >/stub/ubus <<'UBUS'
#!/bin/sh
echo "ubus $*" >>/root/calls
case "$*" in
*'service list {"name":"dhcp"}') echo '{"dhcp":{"instances":{"wan1":{"running":true,"pid":9,"command":["/sbin/udhcpc","-i","wan1"],"respawn":{"threshold":3600}},"server":{"running":true,"command":["wan9"]},"wan1_n2":{"running":false}}}}' ;;
*'service list {"name":"pppoe"}') echo '{"pppoe":{"instances":{"wan2":{"running":true}}}}' ;;
*list*) echo '{}' ;;
esac
UBUS
"""


def missing() -> str | None:
    """Why the sandbox cannot be entered here, or None."""
    if os.geteuid() != 0:
        return "needs root"
    done = subprocess.run(["unshare", "--mount", "--net", "--ipc", "true"], capture_output=True, text=True)
    return None if done.returncode == 0 else "no private name spaces here: " + done.stderr.strip()


def lacks_nat() -> bool:
    """Whether there is no table for iptables in a private network."""
    return missing() is not None or subprocess.run(["unshare", "--net", "iptables", "-t", "nat", "-S"],
                                                   capture_output=True).returncode != 0


def run(script: str, tmp_path: pathlib.Path, timeout: int = 60, files: Iterable[pathlib.Path] = ()) -> str:
    """Output of a shell script inside, with copies of files in /stub; fails the test when the script fails."""
    folder = tmp_path / "root"
    folder.mkdir(exist_ok=True)
    command = ["unshare", "--mount", "--net", "--ipc", "--pid", "--fork", "--kill-child", "--propagation", "private",
               "sh", "-c", ENTER, "sandbox", str(folder), script]
    done = subprocess.run(command, capture_output=True, text=True, timeout=timeout,
                          env={**os.environ, "IMAGE": str(IMAGE), "FILES": "".join(f"{file}\n" for file in files)})
    assert done.returncode == 0, f"status {done.returncode}\n{done.stdout}\n{done.stderr}"
    return done.stdout


def quoted(words: Iterable[str]) -> str:
    return " ".join(shlex.quote(word) for word in words)
