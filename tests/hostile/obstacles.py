"""What somebody who is first puts in the place of a name, and what root has that must stay as it is."""

from tests.runners import ROOT

# What "nobody" puts in the place of a path.
OBSTACLES = {
    "file": "nobody sh -c 'echo theirs >{path}; chmod 666 {path}'",
    "dangling link": "nobody ln -s /etc/cron.d/made {path}",
    "link to a file": "nobody ln -s /etc/secret {path}",
    "link to a folder": "nobody ln -s /etc {path}",
    "folder": "nobody mkdir -m 777 {path}",
    "full folder": "nobody mkdir -m 777 {path}; nobody touch {path}/x",
    "pipe": "nobody mkfifo -m 666 {path}",
}

# etc: all of /etc, to compare.
SECRET = """
umask 022
mkdir -p /etc/cron.d
echo 'secret of root' >/etc/secret
chmod 600 /etc/secret
etc() { find /etc -printf '%p %y %m %U\\n' | sort; find /etc -type f -exec cksum {} + | sort; }
"""

# The frame that runs service scripts.
FRAME = f"""
cat >/etc/rc.common <<'END-OF-FRAME'
{(ROOT / "lab/rc/rc.common").read_text()}
END-OF-FRAME
printf '#!/bin/sh\\n' >/stub/sysctl; chmod 755 /stub/sysctl
"""
