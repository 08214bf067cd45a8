#!/bin/sh
# Puts the empty database of the PPP logins where it is looked for. /tmp is a RAM disk, so this runs at each
# boot; a database that is there already is left alone.
#
# The path is fixed and lies below a folder that everybody may write to. So each part of it is made by root, or
# must be root's and nobody else's to write; a link in the way is refused.

set -eu
umask 022

template=/usr/share/ivarode/net_stat.db
database=/tmp/calmora/db/net_stat.db

# shellcheck source=image/files/lib/ivarode/files.sh
. /lib/ivarode/files.sh

die() {
    echo "ivarode: $*" >&2
    logger -t ivarode -p daemon.err "$*" 2>/dev/null || :
    exit 1
}

# own_folder PATH: made now, or root's alone.
own_folder() {
    mkdir "$1" 2>/dev/null || is_roots_folder "$1" || die "$1 cannot be made, or belongs to somebody else"
}

own_folder /tmp/calmora
own_folder /tmp/calmora/db
[ ! -L "$database" ] || die "$database is a link"
[ ! -e "$database" ] || exit 0
fresh=/tmp/calmora/db/.net_stat.ivarode
if ! reason=$({ cp "$template" "$fresh" && chmod 600 "$fresh" && mv "$fresh" "$database"; } 2>&1); then
    rm -f "$fresh"
    die "$database is not written: $reason"
fi
