#!/bin/sh
# Locks (-l) or unlocks (-u) the password of an account: "!" before the hash means locked.
. /usr/lib/vboard/stub.sh
case $1 in
-l) edit="s/^\($2:\)!*/\1!/" ;;
-u) edit="s/^\($2:\)!*/\1/" ;;
*) echo "usage: passwd -l|-u USER" >&2; exit 2 ;;
esac
grep -q "^$2:" /etc/shadow || { echo "passwd: no account $2" >&2; exit 1; }
sed "$edit" /etc/shadow >/etc/shadow.new && chmod 640 /etc/shadow.new && mv /etc/shadow.new /etc/shadow
