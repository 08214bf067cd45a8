# shellcheck shell=sh
# Files and log lines of the scripts. Sourced.
#
# A file is replaced whole or stays as it was: a full disk, a read-only one or a sudden end leaves the old text, and the
# log says what was not written. In folders that everybody may write to, nothing is written where somebody else could
# have led it.

wan_log() {
    wan_say info "$@"
}

wan_error() {
    wan_say err "$@"
}

# One line of plain characters, whatever a server or peer has sent.
wan_say() {
    level=$1
    shift
    logger -t ivarode-wan -p "daemon.$level" "$(printf '%s' "$*" | tr -c ' -~' '?' | cut -c 1-500)" 2>/dev/null || :
}

# file_facts PATH: "MODE OWNER" of the path itself, not of what it leads to; nothing where there is nothing.
file_facts() {
    # shellcheck disable=SC2012  # mode and owner; stat is not on every router
    ls -ldn "$1" 2>/dev/null | sed -n '1s/^\(..........\)[^ ]* *[0-9]* *\([0-9]*\) .*/\1 \2/p'
}

# A folder, not a link, that nobody but root may write to.
is_roots_folder() {
    case $(file_facts "$1") in
    d????-??-?' 0') return 0 ;;
    esac
    return 1
}

# What a link leads to, as an absolute path.
link_target() {
    case $(readlink "$1") in
    /*) readlink "$1" ;;
    *) echo "${1%/*}/$(readlink "$1")" ;;
    esac
}

# is_safe_folder PATH [LINKS]: only root can put anything else in its place, or in the place of a part of the way to it.
# Others may add to a part where they cannot remove what is not theirs, as in /tmp. Links of root's are followed.
is_safe_folder() (
    if [ "$1" != / ]; then
        parent=${1%/*}
        is_safe_folder "${parent:-/}" "${2:-0}" || exit 1
    fi
    case $(file_facts "$1") in
    d????-??-?' 0' | d????????[tT]' 0') exit 0 ;;
    l?????????' 0') [ "${2:-0}" -lt 8 ] && is_safe_folder "$(link_target "$1")" $((${2:-0} + 1)) ;;
    *) exit 1 ;;
    esac
)

# make_folder PATH
make_folder() {
    [ ! -d "$1" ] || return 0
    if ! reason=$(mkdir -p "$1" 2>&1); then
        wan_error "$1 cannot be made: $reason"
        return 1
    fi
}

# take_lock FOLDER: no other script works there until this shell, a subshell for this purpose, has ended.
take_lock() {
    command -v flock >/dev/null || return 0
    if ! reason=$({ true >>"$1/.lock"; } 2>&1); then
        wan_error "$1 cannot be locked: $reason"
        return 1
    fi
    exec 9>>"$1/.lock"
    flock 9
}

# fresh_file PATH: the name of a new file beside it. In a folder of root's it is fixed, so that the next writer takes away
# what one that was killed has left; elsewhere nobody must guess it.
fresh_file() {
    if is_roots_folder "${1%/*}"; then
        echo "${1%/*}/.${1##*/}.ivarode"
    else
        mktemp "${1%/*}/.ivarode.XXXXXX"
    fi
}

# replace_file PATH MODE: standard input becomes the text of the file.
replace_file() {
    text=$(cat)
    [ ! -f "$1" ] || [ "$(cat "$1")" != "$text" ] || return 0
    if ! fresh=$(fresh_file "$1" 2>&1); then
        wan_error "$1 is not written: $fresh"
        return 1
    fi
    if reason=$({ put_text "$text" >"$fresh" && chmod "$2" "$fresh" && mv -f "$fresh" "$1"; } 2>&1); then
        return 0
    fi
    rm -f "$fresh"
    wan_error "$1 is not written: $reason"
    return 1
}

# A file that is mounted into place cannot be replaced, only written.
rewrite_mounted_file() {
    text=$(cat)
    old=$(cat "$1")
    [ "$old" != "$text" ] || return 0
    if ! reason=$({ put_text "$text" >"$1"; } 2>&1); then
        { put_text "$old" >"$1"; } 2>/dev/null
        wan_error "$1 is not written: $reason"
        return 1
    fi
}

# By a program, because a shell's own "printf" may not tell that the disk is full.
put_text() {
    [ -z "$1" ] || printf '%s\n' "$1" | cat
}
