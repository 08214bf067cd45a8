#!/bin/sh
# Runs the daemon with the recording in front of it: record.sh DAEMON LIBRARY KIB SECRETS. What is preloaded already comes
# behind it.
LD_PRELOAD=$2${LD_PRELOAD:+:$LD_PRELOAD}
IVARODE_RECORD_SIZE=$3
IVARODE_RECORD_SECRETS=$4
export LD_PRELOAD IVARODE_RECORD_SIZE IVARODE_RECORD_SECRETS
exec "$1"
