// Keeps frames of other ports out of tunnelled ports, and frames of a tunnelled port out of all ports but its peer.
#include "switch/broadcom/egress_mask.h"

#include <ddal/bcm_open.h>

#include <algorithm>
#include <cstring>

#include "switch/broadcom/field_entry.h"
#include "switch/broadcom/port_bitmap.h"
#include "switch/broadcom/redirection.h"
#include "switch/broadcom/start.h"

using namespace ddal::ethswitch;

namespace {

constexpr int kBeforeCommon = 1; // priority of a port's entry; the common entry has 0
constexpr uint32_t kAnyPort = UINT32_MAX;

// The tunnels for all frames, read from the redirections.
struct Tunnels {
    uint32_t peers[kPortsWithEntries];
    bool redirected[kPortsWithEntries] = {};
    bcm_pbmp_t ports{}; // both ends
    bcm_pbmp_t ends{};  // ends of tunnels without a way back
};

int read_tunnels(Tunnels *tunnels)
{
    FieldEntryList entries;
    if (const int rv = entries.read(kFrames); rv != 0)
        return rv;
    for (const int entry : entries) {
        const auto port = static_cast<uint32_t>(entry);
        std::optional<FieldAction> action;
        if (port >= kPortsWithEntries)
            continue;
        if (const int rv = read_action(entry, bcmFieldActionRedirect, &action); rv != 0)
            return rv;
        const uint32_t peer = action ? port_of_redirection(*action) : port;
        if (peer == port || peer >= kPortsWithEntries)
            continue; // a loopback does not keep frames out
        tunnels->redirected[port] = true;
        tunnels->peers[port] = peer;
        add_port(&tunnels->ports, port);
        add_port(&tunnels->ports, peer);
    }
    for (uint32_t port = 0; port < kPortsWithEntries; port++)
        if (holds_port(tunnels->ports, port) && !tunnels->redirected[port])
            add_port(&tunnels->ends, port);
    return 0;
}

bool is_empty(const bcm_pbmp_t &ports)
{
    return std::all_of(std::begin(ports.pbits), std::end(ports.pbits), [](uint32_t word) { return word == 0; });
}

bool are_equal(const bcm_pbmp_t &a, const bcm_pbmp_t &b)
{
    return std::equal(std::begin(a.pbits), std::end(a.pbits), std::begin(b.pbits));
}

int create_mask(int entry, uint32_t port)
{
    bool created = false;
    int rv = ensure_entry(kMasks, entry, &created);
    if (rv == 0 && port == kAnyPort)
        rv = sdk_on_entry(entry, bcm_field_qualify_InPort, 0, 0);
    else if (rv == 0)
        rv = qualify_port(entry, port);
    if (rv == 0 && port != kAnyPort)
        rv = sdk_on_entry(entry, bcm_field_entry_prio_set, kBeforeCommon);
    return rv;
}

int add_mask(int entry, const bcm_pbmp_t &mask)
{
    const int rv = sdk_on_entry(entry, bcm_field_action_ports_add, bcmFieldActionEgressMask, mask);
    return rv != 0 ? rv : sdk_on_entry(entry, bcm_field_entry_install);
}

int create_and_mask(int entry, uint32_t port, const bcm_pbmp_t &mask)
{
    int rv = create_mask(entry, port);
    if (rv == 0)
        rv = add_mask(entry, mask);
    if (rv != 0)
        sdk_result(bcm_field_entry_destroy, kUnit, entry);
    return rv;
}

// The present mask stays in force until the entry is installed with the new one.
int put_mask(const FieldEntryList &entries, int entry, uint32_t port, const bcm_pbmp_t &blocked)
{
    const bcm_pbmp_t mask = egress_mask_of(blocked);
    if (!entries.holds(entry))
        return create_and_mask(entry, port, mask);
    bcm_pbmp_t present{};
    int rv = sdk_result(bcm_field_action_ports_get, kUnit, entry, bcmFieldActionEgressMask, &present);
    if (rv == BCM_E_NOT_FOUND) // a process has not finished the entry
        return create_and_mask(entry, port, mask);
    if (rv != BCM_E_NONE) {
        log_entry_failure({__func__, __LINE__, "bcm_field_action_ports_get"}, entry, rv);
        return rv;
    }
    if (are_equal(present, mask))
        return sdk_on_entry(entry, bcm_field_entry_install);
    rv = sdk_on_entry(entry, bcm_field_action_remove, bcmFieldActionEgressMask);
    return rv != 0 ? rv : add_mask(entry, mask);
}

// Drops frames that enter at the far end of a tunnel without a way back: normal forwarding could lead them into the
// tunnel again. Stores false in *dropped if the device lacks the entry.
int drop_from(const bcm_pbmp_t &ends, bool *dropped)
{
    constexpr bcm_pbmp_t kAll{{kAllBits, kAllBits, kAllBits, kAllBits, kAllBits, kAllBits, kAllBits, kAllBits}};
    const bool none = is_empty(ends);
    int rv = none ? sdk_result(bcm_field_entry_remove, kUnit, kTunnelDrop)
                  : sdk_result(bcm_field_qualify_InPorts, kUnit, kTunnelDrop, ends, kAll);
    *dropped = rv == BCM_E_NONE;
    if (rv == BCM_E_NOT_FOUND || rv == BCM_E_UNAVAIL)
        return 0;
    if (rv != BCM_E_NONE) {
        log_entry_failure({__func__, __LINE__, none ? "bcm_field_entry_remove" : "bcm_field_qualify_InPorts"},
                          kTunnelDrop, rv);
        return rv;
    }
    return none ? 0 : sdk_on_entry(kTunnelDrop, bcm_field_entry_install);
}

// Computes the ports that frames of a port must not leave by. Returns false when the common mask is enough.
bool mask_of(const Tunnels &tunnels, uint32_t port, bool drops, bcm_pbmp_t *blocked)
{
    if (tunnels.redirected[port]) {
        *blocked = every_port_but(tunnels.peers[port]);
        return true;
    }
    *blocked = every_port();
    return !drops && holds_port(tunnels.ends, port);
}

int put_masks(const Tunnels &tunnels, bool drops)
{
    FieldEntryList entries;
    int rv = entries.read(kMasks);
    for (uint32_t port = 0; rv == 0 && port < kPortsWithEntries; port++) {
        const int entry = kPortMask + static_cast<int>(port);
        bcm_pbmp_t blocked;
        if (mask_of(tunnels, port, drops, &blocked))
            rv = put_mask(entries, entry, port, blocked);
        else if (entries.holds(entry))
            rv = destroy_entry(entry);
    }
    if (rv == 0 && !is_empty(tunnels.ports))
        rv = put_mask(entries, kCommonMask, kAnyPort, tunnels.ports);
    else if (rv == 0 && entries.holds(kCommonMask))
        rv = destroy_entry(kCommonMask);
    return rv;
}

} // namespace

DDAL_WEAK int ddal_bcm_ifp_egress_mask_update_all()
{
    if (open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    Tunnels tunnels;
    bool drops = false;
    if (read_tunnels(&tunnels) != 0 || drop_from(tunnels.ends, &drops) != 0 || put_masks(tunnels, drops) != 0)
        return log_error(DDAL_ERR_FAILURE, "Updating the egress masks failed\n");
    return 0;
}
