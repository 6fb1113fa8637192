#!/bin/sh
# Replaces the SSH daemon on machines without it. Has the test mode only, which knows the options of the board's
# configuration and those that a block must not contain.
config=/etc/ssh/sshd_config
test=
while getopts tf: option; do
    case $option in
    t) test=yes ;;
    f) config=$OPTARG ;;
    *) exit 1 ;;
    esac
done
[ -n "$test" ] || { echo "sshd: only the test mode is there" >&2; exit 1; }
exec awk '
function bad(what) { print "configuration line " NR ": " what; failed = 1 }
BEGIN {
    split("port listenaddress hostkey logingracetime maxauthtries usepam clientalivecountmax allowusers subsystem " \
          "permitemptypasswords banner clientaliveinterval x11forwarding allowtcpforwarding disableforwarding match " \
          "permitrootlogin passwordauthentication", names, " ")
    for (i in names) known[names[i]] = 1
    split("port listenaddress hostkey logingracetime usepam subsystem", names, " ")
    for (i in names) global[names[i]] = 1
}
{ sub(/\r$/, "") }
/^[ \t]*(#|$)/ { next }
{
    name = tolower($1)
    if (!(name in known)) bad("unknown option " $1)
    else if (NF < 2) bad($1 " has no value")
    else if (name == "match") in_block = 1
    else if (in_block && (name in global)) bad($1 " may not stand in a block")
}
END { exit failed ? 255 : 0 }' "$config" >&2
