// Single field entries of the switch. Actions take effect when the entry is installed in the hardware.
#pragma once

#include <cstdint>
#include <optional>

#include "switch/broadcom/field_group.h"
#include "switch/broadcom/sdk.h"

namespace ddal::ethswitch {

constexpr uint32_t kAllBits = 0xFFFFFFFF;

struct FieldAction {
    uint32_t first;
    uint32_t second;
};

// Each operation returns 0 or the SDK's result, logged.

// Creates an entry unless it exists; another process may have made it.
int ensure_entry(FieldGroup group, int entry, bool *created);
// Reads the action of a kind. An entry without it, or a missing entry, gives none.
int read_action(int entry, bcm_field_action_t kind, std::optional<FieldAction> *action);
// Replaces the action of that kind and installs the entry. A failure leaves the entry unchanged.
int put_action(int entry, bcm_field_action_t kind, const FieldAction &action);
// Removes the action. Also removes the entry from the hardware, unless it holds an action of the kind `other`. A
// failure leaves the entry unchanged.
int take_action(int entry, bcm_field_action_t kind, bcm_field_action_t other);
// Removes an entry from the hardware and destroys it.
int destroy_entry(int entry);

int qualify_port(int entry, uint32_t port);
int qualify_tag(int entry, bool is_tagged);

// Logs a failed call on an entry with the SDK's text.
void log_entry_failure(const CallSite &site, int entry, int result);

template <typename... Parameters, typename... Arguments>
int entry_call(const CallSite &site, int entry, int (*function)(int, int, Parameters...), Arguments... arguments)
{
    const int result = sdk_result(function, kUnit, entry, arguments...);
    if (result != BCM_E_NONE)
        log_entry_failure(site, entry, result);
    return result;
}

// Works like entry_call for a property that the entry may lack: the result is then 0, and the outputs are unchanged.
template <typename... Parameters, typename... Arguments>
int entry_read(const CallSite &site, int entry, int (*function)(int, int, Parameters...), Arguments... arguments)
{
    const int result = sdk_result(function, kUnit, entry, arguments...);
    if (result == BCM_E_NONE || result == BCM_E_NOT_FOUND)
        return 0;
    log_entry_failure(site, entry, result);
    return result;
}

// Returns the port of a redirection, which is stored as a port or as a gport.
inline uint32_t port_of_redirection(const FieldAction &action)
{
    constexpr uint32_t kTypeShift = 26;
    constexpr uint32_t kPortBits = 0x7FF;
    return action.second >> kTypeShift ? action.second & kPortBits : action.second;
}

} // namespace ddal::ethswitch

// Works like sdk_on_port for calls on a field entry.
#define sdk_on_entry(entry, function, ...)                                                                             \
    ddal::ethswitch::entry_call({__func__, __LINE__, #function}, (entry), function __VA_OPT__(, ) __VA_ARGS__)

// Works like sdk_on_entry for a property that the entry may lack.
#define sdk_if_set(entry, function, ...)                                                                               \
    ddal::ethswitch::entry_read({__func__, __LINE__, #function}, (entry), function __VA_OPT__(, ) __VA_ARGS__)
