#!/bin/sh
# Mounts and remounts. A folder named by the file system's identity holds the content, so that it is empty after
# formatting and unchanged after every mount. Mounting makes the mount point a link to it.
. /usr/lib/vboard/stub.sh
device=$1
table=/etc/mtab

if [ "$2" = -oremount ]; then
    options=$4
    grep -q "^$device " $table || exit 32
    sed "s|^\($device [^ ]* [^ ]*\) [^ ]*|\1 $options|" $table >/run/mtab.new && cat /run/mtab.new >$table
    exit
fi

point=$2
options=$5
[ "$(od -An -tx1 -j1080 -N2 "$device" | tr -d ' ')" = 53ef ] || exit 32
grep -q "^$device " $table && exit 32
identity=$(od -An -tx1 -j1128 -N16 "$device" | tr -d ' \n')
mkdir -p "/ffs/.held/$identity-${device##*/}"
rmdir "$point" && ln -s ".held/$identity-${device##*/}" "$point" || exit 32
echo "$device $point ext4 $options 0 0" >>$table
