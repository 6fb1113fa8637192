// Sends a port's frames to another port: all of them, or those of one ethertype. The entry for untagged frames is made
// first and removed last, so that it shows whether the port is redirected.
#include <ddal/bcm_open.h>

#include <cerrno>

#include "switch/broadcom/field_entry.h"
#include "switch/broadcom/port.h"
#include "switch/broadcom/redirection.h"

using namespace ddal::ethswitch;

namespace {

constexpr uint32_t kAnyEthertype = 0;
constexpr uint32_t kHighestEthertype = 0xFFFF;
constexpr uint16_t kWholeType = 0xFFFF;

int entry_of(int first, uint32_t port)
{
    return first + static_cast<int>(port);
}

int read_whole(uint32_t port, Redirection *redirection)
{
    std::optional<FieldAction> action;
    const int rv = read_action(entry_of(kUntagged, port), bcmFieldActionRedirect, &action);
    if (action)
        *redirection = {true, port_of_redirection(*action), kAnyEthertype};
    return rv;
}

int read_of_type(uint32_t port, Redirection *redirection)
{
    std::optional<FieldAction> action;
    const int entry = entry_of(kEthertype, port);
    int rv = read_action(entry, bcmFieldActionRedirect, &action);
    if (rv != 0 || !action)
        return rv;
    uint16_t type = 0;
    uint16_t mask = 0;
    rv = sdk_on_entry(entry, bcm_field_qualify_EtherType_get, &type, &mask);
    *redirection = {true, port_of_redirection(*action), type};
    return rv;
}

int add_whole(uint32_t port, const FieldAction &action)
{
    int rv = put_action(entry_of(kUntagged, port), bcmFieldActionRedirect, action);
    if (rv != 0)
        return rv;
    rv = put_action(entry_of(kTagged, port), bcmFieldActionRedirect, action);
    if (rv != 0)
        take_action(entry_of(kUntagged, port), bcmFieldActionRedirect, bcmFieldActionCosQNew);
    return rv;
}

int remove_whole(uint32_t port)
{
    int rv = take_action(entry_of(kTagged, port), bcmFieldActionRedirect, bcmFieldActionPrioPktCancel);
    if (rv == 0)
        rv = take_action(entry_of(kUntagged, port), bcmFieldActionRedirect, bcmFieldActionCosQNew);
    return rv;
}

int add_of_type(uint32_t port, const FieldAction &action, uint32_t ethertype)
{
    const int entry = entry_of(kEthertype, port);
    bool created = false;
    int rv = ensure_entry(kEthertypes, entry, &created);
    if (rv != 0)
        return rv;
    rv = qualify_port(entry, port);
    if (rv == 0)
        rv = sdk_on_entry(entry, bcm_field_qualify_EtherType, static_cast<uint16_t>(ethertype), kWholeType);
    if (rv == 0)
        rv = put_action(entry, bcmFieldActionRedirect, action);
    if (rv != 0)
        sdk_result(bcm_field_entry_destroy, kUnit, entry);
    return rv;
}

// Returns 0, or DDAL_ERR_FAILURE logged under the caller's name.
int check_entry(const char *caller, uint32_t port)
{
    if (port < kPortsWithEntries)
        return 0;
    return log_error_as(caller, DDAL_ERR_FAILURE, "port %u has no field entry\n", port);
}

int add(uint32_t port, uint32_t dst_port, uint32_t ethertype)
{
    int gport = 0;
    const int rv = sdk_on_port(dst_port, bcm_port_gport_get, &gport);
    if (rv != 0)
        return rv;
    const FieldAction action{0, static_cast<uint32_t>(gport)};
    return ethertype == kAnyEthertype ? add_whole(port, action) : add_of_type(port, action, ethertype);
}

} // namespace

int ddal::ethswitch::read_redirection(uint32_t port, Redirection *redirection)
{
    *redirection = {};
    if (port >= kPortsWithEntries)
        return 0;
    const int rv = read_whole(port, redirection);
    return rv != 0 || redirection->exists ? rv : read_of_type(port, redirection);
}

DDAL_WEAK int ddal_bcm_ifp_redirect_frame_action_add(uint32_t port, uint32_t dst_port, uint32_t ethertype)
{
    if (check_entry(__func__, port) != 0 || check_port(__func__, dst_port) != 0)
        return DDAL_ERR_FAILURE;
    if (ethertype > kHighestEthertype)
        return log_error(DDAL_ERR_FAILURE, "invalid ethertype 0x%x\n", ethertype);
    if (open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    Redirection present;
    if (read_redirection(port, &present) != 0)
        return log_error(DDAL_ERR_FAILURE, "Redirecting port %u to port %u failed\n", port, dst_port);
    if (present.exists && (present.dst_port != dst_port || present.ethertype != ethertype))
        return log_error(-EEXIST, "port %u is redirected to port %u already\n", port, present.dst_port);
    if (add(port, dst_port, ethertype) != 0) // repeats the call to add a missing half
        return log_error(DDAL_ERR_FAILURE, "Redirecting port %u to port %u failed\n", port, dst_port);
    return 0;
}

DDAL_WEAK int ddal_bcm_ifp_redirect_frame_action_remove(uint32_t port, uint32_t dst_port)
{
    if (open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    Redirection present;
    if (read_redirection(port, &present) != 0)
        return log_error(DDAL_ERR_FAILURE, "Ending the redirection of port %u failed\n", port);
    if (!present.exists || present.dst_port != dst_port)
        return log_error(-ENOENT, "port %u is not redirected to port %u\n", port, dst_port);
    const int rv = present.ethertype == kAnyEthertype ? remove_whole(port) : destroy_entry(entry_of(kEthertype, port));
    return rv == 0 ? 0 : log_error(DDAL_ERR_FAILURE, "Ending the redirection of port %u failed\n", port);
}

DDAL_WEAK int ddal_bcm_ifp_redirect_frame_action_exists(uint32_t port, uint32_t dst_port)
{
    if (open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    Redirection present;
    if (read_redirection(port, &present) != 0)
        return log_error(DDAL_ERR_FAILURE, "Reading the redirection of port %u failed\n", port);
    return present.exists && present.dst_port == dst_port;
}

DDAL_WEAK int ddal_bcm_ifp_redirect_frame_action_get(uint32_t port, uint32_t *dst_port)
{
    if (check_given(__func__, dst_port) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    Redirection present;
    if (read_redirection(port, &present) != 0)
        return log_error(DDAL_ERR_FAILURE, "Reading the redirection of port %u failed\n", port);
    if (!present.exists)
        return log_error(-ENOENT, "port %u is not redirected\n", port);
    *dst_port = present.dst_port;
    return 0;
}
