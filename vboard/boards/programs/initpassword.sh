#!/bin/sh
# Sets the password hash of an account to the content of a file.
. /usr/lib/vboard/stub.sh
[ "$1" = -u ] && [ -n "$2" ] && [ "$3" = -h ] && [ -n "$4" ] || { echo "usage: initpassword -u USER -h FILE" >&2; exit 2; }
grep -q "^$2:" /etc/shadow || { echo "no account $2" >&2; exit 3; }
hash=$(cat "$4") || exit 1
awk -F: -v OFS=: -v user="$2" -v hash="$hash" '$1 == user { $2 = hash } { print }' /etc/shadow >/etc/shadow.new &&
    chmod 640 /etc/shadow.new && mv /etc/shadow.new /etc/shadow
