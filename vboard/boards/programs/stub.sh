# Common start of the stubs of the board's programs: they log their run, and fail on request.
#
#   . /usr/lib/vboard/stub.sh
#
# /run/stub/log has one line per run: the program's name and its arguments. /run/stub/fail/<name>, <name>.<first
# argument> or <name>.<first>.<last part of the second argument> holds the outcome of the next runs: an exit status, or
# "signal NAME".
stub_name=${0##*/}
echo "$stub_name $*" >>/run/stub/log
for stub_order in "$stub_name.$1.${2##*/}" "$stub_name.$1" "$stub_name"; do
    stub_order=/run/stub/fail/$stub_order
    [ -f "$stub_order" ] || continue
    read -r stub_status stub_signal <"$stub_order" || :
    if [ "$stub_status" = signal ]; then
        kill -s "$stub_signal" $$
    else
        exit "$stub_status"
    fi
done
