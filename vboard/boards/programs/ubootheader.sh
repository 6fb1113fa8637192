#!/bin/sh
# Prints the content of a boot header.
. /usr/lib/vboard/stub.sh
[ "$1" = -g ] && cat "$2"
