#!/bin/sh
# Takes away what is in the place of the objects that the daemon shares with ivarodectl, and of its recording, where it is not
# root's: everybody may write to /dev/shm and /tmp. The daemon would go on without them. A folder goes only when it is empty:
# what is in it could be exchanged meanwhile for a way to other files.

# shellcheck source=image/files/lib/ivarode/files.sh
. /lib/ivarode/files.sh

for object in /dev/shm/ivarode-debug /dev/shm/ivarode-records /tmp/ivarode.rec /tmp/ivarode.rec.1; do
    facts=$(file_facts "$object")
    case $facts in
    '' | -?????????' 0') continue ;;
    d*) reason=$(rmdir "$object" 2>&1) ;;
    *) reason=$(rm -f "$object" 2>&1) ;;
    esac
    [ -n "$reason" ] || reason="removed"
    wan_error "$object is in the way, and not a file of root's ($facts): $reason"
done
