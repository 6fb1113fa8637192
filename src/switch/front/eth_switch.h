// The front end of the switch: who may use it, and the body that its operations share.
#pragma once

#include <cstdint>

#include "core/log.h"

namespace ddal::ethswitch {

// 0 on the board with the Broadcom switch, else -ENOSYS.
int verify_broadcom_support();

// 0, or -ENOSYS for any switch device but the one that is served. The second form asks for the board first.
int admit(const char *caller, uint32_t sw);
int admit_board_first(const char *caller, uint32_t sw);

// `refusal` unless that is 0; else 0, or -EOPNOTSUPP for an S-VLAN that the switch lacks.
int admit_svlan(const char *caller, int refusal, uint32_t svlan);

// The refusal, or the result of the call; a failed call is told.
template <typename Call, typename Tell>
int answer(int refusal, Call call, Tell tell)
{
    if (refusal != 0)
        return refusal;
    const int rc = call();
    if (rc != 0)
        tell(rc);
    return rc;
}

} // namespace ddal::ethswitch

// The body of an operation: admits its caller, makes `call`, and logs the text under the operation's name if that
// fails. The arguments of the text may name the result, `rc`.
#define on_switch(sw, call, format, ...)                                                                               \
    answer_or_refuse(ddal::ethswitch::admit(__func__, (sw)), call, format, __VA_ARGS__)
#define on_board_switch(sw, call, format, ...)                                                                         \
    answer_or_refuse(ddal::ethswitch::admit_board_first(__func__, (sw)), call, format, __VA_ARGS__)
#define on_svlan(refusal, svlan, call, format, ...)                                                                    \
    answer_or_refuse(ddal::ethswitch::admit_svlan(__func__, (refusal), (svlan)), call, format, __VA_ARGS__)

// __func__ is read outside the lambda, where it names the operation.
#define answer_or_refuse(refusal, call, format, ...)                                                                   \
    ddal::ethswitch::answer(                                                                                           \
        (refusal), [&] { return call; },                                                                               \
        [&, caller = __func__]([[maybe_unused]] int rc) { log_line_as(LOG_ERR, caller, format, __VA_ARGS__); })
