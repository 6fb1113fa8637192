// The front end of the switch: admission of callers, and the body that its operations share.
#pragma once

#include <cstdint>

#include "core/log.h"

namespace ddal::ethswitch {

// Returns 0 on the board with the Broadcom switch, else -ENOSYS.
int verify_broadcom_support();

// Return 0, or -ENOSYS for any other switch device than the one supported. The second form checks the board first.
int admit(const char *caller, uint32_t sw);
int admit_board_first(const char *caller, uint32_t sw);

// Returns `refusal` unless that is 0. Otherwise returns 0, or -EOPNOTSUPP for an S-VLAN that the switch lacks.
int admit_svlan(const char *caller, int refusal, uint32_t svlan);

// Returns the refusal or the result of the call. Passes the caller and the result of a failed call to `tell`.
template <typename Call, typename Tell>
int answer(const char *caller, int refusal, Call call, Tell tell)
{
    if (refusal != 0)
        return refusal;
    const int rc = call();
    if (rc != 0)
        tell(caller, rc);
    return rc;
}

} // namespace ddal::ethswitch

// The body of an operation: admits its caller and makes `call`. If the call fails, logs the text under the operation's
// name. The arguments of the text may use the result as `rc`.
#define on_switch(sw, call, format, ...)                                                                               \
    answer_or_refuse(ddal::ethswitch::admit(__func__, (sw)), call, format, __VA_ARGS__)
#define on_board_switch(sw, call, format, ...)                                                                         \
    answer_or_refuse(ddal::ethswitch::admit_board_first(__func__, (sw)), call, format, __VA_ARGS__)
#define on_svlan(refusal, svlan, call, format, ...)                                                                    \
    answer_or_refuse(ddal::ethswitch::admit_svlan(__func__, (refusal), (svlan)), call, format, __VA_ARGS__)

// `__func__` must be read outside the lambda, where it names the operation.
#define answer_or_refuse(refusal, call, format, ...)                                                                   \
    ddal::ethswitch::answer(                                                                                           \
        __func__, (refusal), [&] { return call; },                                                                     \
        [&](const char *caller, [[maybe_unused]] int rc) { log_line_as(LOG_ERR, caller, format, __VA_ARGS__); })
