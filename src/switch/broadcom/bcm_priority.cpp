// The queue of a port's frames without a tag, and the PCP of those with one: actions of the port's default entries.
#include <ddal/bcm_open.h>

#include <cerrno>

#include "switch/broadcom/field_entry.h"
#include "switch/broadcom/port.h"
#include "switch/broadcom/priority_rules.h"

using namespace ddal::ethswitch;

namespace {

constexpr uint32_t kHighestQueue = 7;

int untagged_entry(uint32_t port)
{
    return kUntagged + static_cast<int>(port);
}

int tagged_entry(uint32_t port)
{
    return kTagged + static_cast<int>(port);
}

// Returns 0, or DDAL_ERR_FAILURE logged under the caller's name.
int check_entry(const char *caller, uint32_t port)
{
    if (port >= kPortsWithEntries)
        return log_error_as(caller, DDAL_ERR_FAILURE, "port %u has no field entry\n", port);
    return open_bcm_switch();
}

} // namespace

int ddal::ethswitch::read_preserves_pcp(uint32_t port, bool *preserves)
{
    std::optional<FieldAction> action;
    const int rv = port < kPortsWithEntries ? read_action(tagged_entry(port), bcmFieldActionPrioPktCancel, &action) : 0;
    *preserves = action.has_value();
    return rv;
}

DDAL_WEAK int ddal_bcm_ifp_cosq_untagged_frame_action_add(uint32_t port, uint32_t queue)
{
    if (queue > kHighestQueue)
        return log_error(DDAL_ERR_FAILURE, "invalid queue %u\n", queue);
    if (check_entry(__func__, port) != 0)
        return DDAL_ERR_FAILURE;
    if (put_action(untagged_entry(port), bcmFieldActionCosQNew, {queue, 0}) != 0)
        return log_error(DDAL_ERR_FAILURE, "Setting the queue of untagged frames failed on port %u\n", port);
    return 0;
}

DDAL_WEAK int ddal_bcm_ifp_cosq_untagged_frame_action_remove(uint32_t port)
{
    if (check_entry(__func__, port) != 0)
        return DDAL_ERR_FAILURE;
    if (take_action(untagged_entry(port), bcmFieldActionCosQNew, bcmFieldActionRedirect) != 0)
        return log_error(DDAL_ERR_FAILURE, "Removing the queue of untagged frames failed on port %u\n", port);
    return 0;
}

DDAL_WEAK int ddal_bcm_ifp_cosq_untagged_frame_action_get(uint32_t port, uint32_t *queue)
{
    if (check_given(__func__, queue) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    std::optional<FieldAction> action;
    if (port < kPortsWithEntries && read_action(untagged_entry(port), bcmFieldActionCosQNew, &action) != 0)
        return log_error(DDAL_ERR_FAILURE, "Getting the queue of untagged frames failed on port %u\n", port);
    if (!action)
        return -ENOENT; // not a failure and not logged: the port uses the switch's default
    *queue = action->first;
    return 0;
}

DDAL_WEAK int ddal_bcm_ifp_preserve_pcp_priority_frame_action_add(uint32_t port)
{
    if (check_entry(__func__, port) != 0)
        return DDAL_ERR_FAILURE;
    if (put_action(tagged_entry(port), bcmFieldActionPrioPktCancel, {0, 0}) != 0)
        return log_error(DDAL_ERR_FAILURE, "Preserving the PCP failed on port %u\n", port);
    return 0;
}

DDAL_WEAK int ddal_bcm_ifp_preserve_pcp_priority_frame_action_remove(uint32_t port)
{
    if (check_entry(__func__, port) != 0)
        return DDAL_ERR_FAILURE;
    if (take_action(tagged_entry(port), bcmFieldActionPrioPktCancel, bcmFieldActionRedirect) != 0)
        return log_error(DDAL_ERR_FAILURE, "Ending the preservation of the PCP failed on port %u\n", port);
    return 0;
}
