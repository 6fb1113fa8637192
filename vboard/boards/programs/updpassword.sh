#!/bin/sh
# Sets the password of an account. Reads it from standard input up to the end and prints the reasons of a refusal.
. /usr/lib/vboard/stub.sh
[ "$1" = -u ] && [ -n "$2" ] || { echo "usage: updpassword -u USER" >&2; exit 2; }
user=$2
history=/rom/etc/security/opasswd
grep -q "^$user:" /etc/shadow || { echo "no account $user"; exit 3; }

# The full stop keeps the shell from removing line breaks at the end.
password=$(cat; echo .)
password=${password%.}

hash=$(printf '%s' "$user$password" | sha256sum)
hash=${hash%% *}
remembered=$(sed -n 's/^password.*pam_pwhistory\.so.*remember=\([0-9]*\).*/\1/p' /etc/pam.d/common-password | head -n 1)

reasons=
refuse() { reasons="$reasons$1
"; }
case $password in
*'
'*) refuse "the password holds a line break" ;;
esac
[ "${#password}" -ge 8 ] || refuse "the password has fewer than 8 characters"
case $password in *[0-9]*) ;; *) refuse "the password has no digit" ;; esac
case $password in *"$user"*) refuse "the password holds the name of the account" ;; esac
if [ -e "$history" ] && grep "^$user:" "$history" | tail -n "${remembered:-0}" | grep -q ":$hash\$"; then
    refuse "the password was used before"
fi
if [ -n "$reasons" ]; then
    printf '%s' "$reasons"
    # Text that the network operator adds to a refusal, if there is one.
    [ ! -e /etc/security/password_policy.txt ] || cat /etc/security/password_policy.txt
    exit 1
fi

awk -F: -v OFS=: -v user="$user" -v hash="$hash" '$1 == user { $2 = hash } { print }' /etc/shadow >/etc/shadow.new &&
    chmod 640 /etc/shadow.new && mv /etc/shadow.new /etc/shadow || exit 4
echo "$user:$hash" >>"$history"
mkdir -p "/flash/config/$user" && echo "$hash" >"/flash/config/$user/.passwd"
