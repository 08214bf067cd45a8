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

die() {
    echo "ivarode: $*" >&2
    logger -t ivarode -p daemon.err "$*" 2>/dev/null || :
    exit 1
}

# own_folder PATH: made now, or root's alone.
own_folder() {
    mkdir "$1" 2>/dev/null && return 0
    if [ -L "$1" ] || [ ! -d "$1" ]; then
        die "$1 is in the way and is not a folder"
    fi
    # shellcheck disable=SC2012  # mode and owner; stat is not on every router
    case $(ls -ldn "$1" | sed 's/^\(..........\)[^ ]* *[0-9]* *\([0-9]*\) .*/\1 \2/') in
    d????-??-?' 0') ;;
    *) die "$1 belongs to somebody else" ;;
    esac
}

own_folder /tmp/calmora
own_folder /tmp/calmora/db
[ ! -L "$database" ] || die "$database is a link"
[ -e "$database" ] && exit 0
fresh=$(mktemp /tmp/calmora/db/.net_stat.XXXXXX)
cp "$template" "$fresh"
chmod 600 "$fresh"
mv "$fresh" "$database"
