#!/bin/sh
# Starts and stops units: the board keeps a mark for each that is active.
. /usr/lib/vboard/stub.sh
[ -n "$2" ] || exit 1
mkdir -p /run/systemd/units
case $1 in
start | restart | reload) echo active >"/run/systemd/units/$2" ;;
stop) rm -f "/run/systemd/units/$2" ;;
is-active) [ -f "/run/systemd/units/$2" ] || exit 3 ;;
*) exit 1 ;;
esac
