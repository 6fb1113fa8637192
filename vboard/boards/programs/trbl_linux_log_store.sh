#!/bin/sh
# Collects the log into a named archive.
[ -n "$1" ] || exit 2
mkdir -p /ram/trbl && date +%s >"/ram/trbl/$1"
