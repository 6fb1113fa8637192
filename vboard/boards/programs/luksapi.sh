#!/bin/sh
# Encryption of the flash disk's partitions. An encrypted partition begins with the container's mark. A separate file
# holds its content and represents the mapper device.
. /usr/lib/vboard/stub.sh
disk=/dev/sda$2
mapper=/dev/mapper/decrypted$2
dummy=/dev/flash/by-name/dummy$2
size=4M

wipe()
{
    truncate -s 0 "$1" && truncate -s $size "$1"
}

case $1 in
is_luks_formatted) [ "$(head -c 4 "$disk")" = LUKS ] || exit 1 ;;
unlink_unencrypted_partition) rm "$mapper" || exit 1 ;;
setup_luks_partition) wipe "$disk" && printf 'LUKS\272\276\000\002' | dd of="$disk" conv=notrunc status=none || exit 1 ;;
create_mapper_devices) [ "$(head -c 4 "$disk")" = LUKS ] && wipe "$mapper" || exit 1 ;;
close_devices) [ ! -L "$mapper" ] && rm "$mapper" || exit 1 ;;
link_unencrypted_partition) wipe "$disk" && ln -s "../sda$2" "$mapper" || exit 1 ;;
clear_dummy_part) : >"$dummy" ;;
install_uboot_on_dummy_part) echo u-boot >"$dummy" ;;
*) exit 2 ;;
esac
