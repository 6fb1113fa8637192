#!/bin/sh
# Prints what a boot header says.
. /usr/lib/vboard/stub.sh
[ "$1" = -g ] && cat "$2"
