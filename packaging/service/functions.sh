# What the start scripts and the units have in common. Sourced by them; needs a POSIX shell and nothing
# that busybox does not have. The caller's NAME begins every message.
# shellcheck shell=sh

REPORT_NAME=aws_traffic_usage_details.json
SECONDS_TO_REPORT=30 # two passes, and one that takes its time

say() {
    echo "$NAME: $*"
}

fail() {
    echo "$NAME: $*" >&2
    return 1
}

# wait_for SECONDS COMMAND...: looks once a second; fails when the command never holds.
wait_for() {
    seconds=$1
    shift
    until "$@" >/dev/null; do
        [ "$seconds" -gt 0 ] || return 1
        seconds=$((seconds - 1))
        sleep 1
    done
}

# with_lock FILE COMMAND...: one at a time. The file has to be in a folder of root's, and stays; the
# command's background processes must not keep descriptor 9.
with_lock() {
    lock=$1
    shift
    (
        if command -v flock >/dev/null; then
            flock 9
        else
            say "there is no flock here: make sure that nobody else starts it now"
        fi
        "$@"
    ) 9>>"$lock"
}

# make_folder PATH: a folder of one's own in a place where anybody may write. What somebody else has put
# there is refused: through a link in it they would have their files written by root.
make_folder() {
    mkdir -m 755 "$1" 2>/dev/null && return
    # One look, which follows no link. What is ours then cannot be replaced by others, because the
    # place has the sticky bit.
    # shellcheck disable=SC2012 # the mode and the owner of one known name
    look=$(ls -ldn "$1" 2>/dev/null) || fail "cannot make the folder $1" || return
    case $look in
    d*) ;;
    l*) fail "refused: $1 is a link; remove it" || return ;;
    *) fail "refused: $1 is no folder; remove it" || return ;;
    esac
    # shellcheck disable=SC2086 # a line of words
    set -- "$1" $look
    [ "$4" = "$(id -u)" ] ||
        fail "refused: the folder $1 belongs to user $4, not to user $(id -u); remove it" || return
    chmod 755 "$1"
}

# pids_of NAME [UNIT]: the processes of that name (as the kernel keeps it, 15 characters); with a unit
# those of the unit only.
pids_of() {
    for process in /proc/[0-9]*; do
        { read -r comm <"$process/comm"; } 2>/dev/null || continue
        [ "$comm" = "$1" ] || continue
        [ -z "${2:-}" ] || is_in_unit "$process" "$2" || continue
        echo "${process#/proc/}"
    done
}

# is_in_unit PROCESS UNIT
is_in_unit() {
    while read -r group; do
        case $group in
        */"$2") return 0 ;;
        esac
    done 2>/dev/null <"$1/cgroup"
    return 1
}

# setting NAME: its value, nothing when it is unset or when there is no store to ask.
setting() {
    nvram get "$1" 2>/dev/null
}

# give_setting NAME VALUE: writes only what is different, because the store waits for the disk.
give_setting() {
    [ "$(setting "$1")" = "$2" ] || nvram set "$1=$2"
}

# What gateway.conf says goes into the settings store; what neither says gets what lets the daemon work.
apply_settings() {
    if [ -n "${REGION:-}" ] || [ -z "$(setting sku_name)" ]; then
        give_setting sku_name "${REGION:-NA}" || return
    fi
    if [ -z "$(setting enable_trafficUsageDetails)" ]; then
        give_setting enable_trafficUsageDetails 1 || return
    fi
    [ -z "${IDLE_PASSES:-}" ] || give_setting tud_max_idle_time "$IDLE_PASSES"
}

is_modified_since() {
    [ "$(date -r "$2" +%s 2>/dev/null || echo 0)" -gt "$1" ]
}

# The report itself, or the folder that somebody has already taken it from.
is_written_since() {
    is_modified_since "$1" "$2/$REPORT_NAME" || is_modified_since "$1" "$2"
}

check_report_folder() {
    [ -d "$1" ] || fail "no report: the folder $1 is missing; starting the daemon anew makes it" ||
        return
    # Tried, because not every shell's -w knows a file system that may only be read.
    probe=$(mktemp "$1/.probe.XXXXXX" 2>/dev/null) ||
        fail "no report: the folder $1 cannot be written" || return
    rm -f "$probe"
}

check_feature() {
    command -v nvram >/dev/null || return 0
    [ "$(setting enable_trafficUsageDetails)" = 1 ] ||
        fail "no report: the feature is off; nvram set enable_trafficUsageDetails=1 switches it on"
}

# request_report PID FOLDER: asks the daemon for a report, waits for it and prints its path.
request_report() {
    check_feature || return
    check_report_folder "$2" || return
    since=$(date +%s)
    sleep 1 # times of files are compared in whole seconds
    kill -USR1 "$1" || return
    wait_for $SECONDS_TO_REPORT is_written_since "$since" "$2" ||
        fail "no report after $SECONDS_TO_REPORT seconds; is $2 full?" || return
    if [ -e "$2/$REPORT_NAME" ]; then
        echo "$2/$REPORT_NAME"
    else
        say "the report was written, and taken by the uploader"
    fi
}
