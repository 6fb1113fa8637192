// Calls of the switch SDK. A missing call counts as "feature unavailable", and a failure is logged with the SDK's text.
#pragma once

#include <cstdint>

#include "core/foreign_call.h"
#include "core/log.h"
#include "switch/broadcom/sdk.h"

namespace ddal::ethswitch {

constexpr int kUnit = 0;

// Returns the SDK's text of a result.
const char *sdk_text(int result);

// Calls `function` if the SDK offers it.
template <typename... Parameters, typename... Arguments>
int sdk_result(int (*function)(Parameters...), Arguments... arguments)
{
    const core::ForeignCall call;
    return function ? function(static_cast<Parameters>(arguments)...) : BCM_E_UNAVAIL;
}

// Works like sdk_result for calls that make an object. Returns null if the call is missing.
template <typename Object, typename... Parameters, typename... Arguments>
Object *sdk_object(Object *(*function)(Parameters...), Arguments... arguments)
{
    const core::ForeignCall call;
    return function ? function(static_cast<Parameters>(arguments)...) : nullptr;
}

// Works like sdk_result for calls without a result. Returns false if the call is missing.
template <typename... Parameters, typename... Arguments>
bool sdk_done(void (*function)(Parameters...), Arguments... arguments)
{
    const core::ForeignCall call;
    if (function)
        function(static_cast<Parameters>(arguments)...);
    return function;
}

// Place of a call in the library's source, and the name of the called function.
struct CallSite {
    const char *caller;
    unsigned line;
    const char *callee;
};

// Log a failed call with the SDK's text.
void log_port_failure(const CallSite &site, uint32_t port, int result);
void log_unit_failure(const CallSite &site, int result);

template <typename... Parameters, typename... Arguments>
int port_call(const CallSite &site, uint32_t port, int (*function)(int, int, Parameters...), Arguments... arguments)
{
    const int result = sdk_result(function, kUnit, static_cast<int>(port), arguments...);
    if (result != BCM_E_NONE)
        log_port_failure(site, port, result);
    return result;
}

template <typename... Parameters, typename... Arguments>
int unit_call(const CallSite &site, int (*function)(int, Parameters...), Arguments... arguments)
{
    const int result = sdk_result(function, kUnit, arguments...);
    if (result != BCM_E_NONE)
        log_unit_failure(site, result);
    return result;
}

} // namespace ddal::ethswitch

// Calls function(unit, port, ...) of the SDK. Logs a failure under the calling function's name. Yields the SDK's
// result.
#define sdk_on_port(port, function, ...)                                                                               \
    ddal::ethswitch::port_call({__func__, __LINE__, #function}, (port), function __VA_OPT__(, ) __VA_ARGS__)

// Works like sdk_on_port for calls without a port: function(unit, ...).
#define sdk_on_unit(function, ...)                                                                                     \
    ddal::ethswitch::unit_call({__func__, __LINE__, #function}, function __VA_OPT__(, ) __VA_ARGS__)
