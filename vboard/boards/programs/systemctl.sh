#!/bin/sh
# Starts and stops units; the board keeps a mark for each active one. If /etc/units/<unit> exists, it is a command that
# must succeed at the start. After five starts without a reset the service manager refuses a sixth.
. /usr/lib/vboard/stub.sh
[ -n "$2" ] || exit 1
limit=5
mark=/run/systemd/units/$2
starts=/run/systemd/starts/$2
mkdir -p /run/systemd/units /run/systemd/starts

start()
{
    count=$(cat "$starts" 2>/dev/null)
    [ "${count:-0}" -lt "$limit" ] || { echo "$2: start request repeated too quickly" >&2; exit 1; }
    echo $((${count:-0} + 1)) >"$starts"
    [ ! -f "/etc/units/$2" ] || sh "/etc/units/$2" || { echo "$2 failed to start" >&2; exit 1; }
    echo active >"$mark"
}

case $1 in
start) [ -f "$mark" ] || start "$@" ;;
restart) rm -f "$mark" && start "$@" ;;
reload) echo active >"$mark" ;;
stop) rm -f "$mark" ;;
reset-failed) rm -f "$starts" ;;
is-active) [ -f "$mark" ] || exit 3 ;;
*) exit 1 ;;
esac
