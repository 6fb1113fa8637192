# What the stubs of the board's programs begin with: they log their run and fail when they are told to.
#
#   . /usr/lib/vboard/stub.sh
#
# /run/stub/log has one line a run: the program's name and its arguments. /run/stub/fail/<name>, <name>.<first argument> or
# <name>.<first>.<last part of the second argument> holds what the next runs end with: an exit status, or "signal NAME".
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
