// Installs the default field entries of the switch's ports, without actions: an entry enters the hardware with its
// first action. Takes over entries that another process has made.
#include <ddal/bcm_open.h>

#include "core/log.h"
#include "switch/broadcom/field_entry.h"

using namespace ddal::ethswitch;

namespace {

constexpr int kInvalidPort = -18; // the SDK's result for a port that the switch lacks

struct DefaultEntries {
    FieldGroup group;
    int first; // number of port 0's entry
    bool is_tagged;
};

class Installation {
public:
    Installation(const char *caller, const DefaultEntries &entries) : caller_(caller), entries_(entries) {}

    // Returns 0, or DDAL_ERR_FAILURE logged under the caller's name. On failure removes everything that it created.
    int run()
    {
        if (present_.read(entries_.group) == 0 && install_all() == 0)
            return 0;
        while (count_ > 0)
            sdk_result(bcm_field_entry_destroy, kUnit, created_[--count_]);
        return log_error_as(caller_, DDAL_ERR_FAILURE, "installing field entries %d to %d failed\n", entries_.first,
                            entries_.first + static_cast<int>(kPortsWithEntries) - 1);
    }

private:
    int install_all()
    {
        for (uint32_t port = 0; port < kPortsWithEntries; port++) {
            const int entry = entries_.first + static_cast<int>(port);
            bool needed = false;
            int rv = present_.holds(entry) ? is_unfinished(entry, &needed) : has_port(port, &needed);
            if (rv == 0 && needed)
                rv = install(entry, port);
            if (rv != 0)
                return rv;
        }
        return 0;
    }

    // Reads the qualifier that is set last: it shows whether the process that created the entry has finished it.
    static int is_unfinished(int entry, bool *unfinished)
    {
        uint8_t data = 0;
        uint8_t mask = 0;
        const int rv = sdk_if_set(entry, bcm_field_qualify_VlanFormat_get, &data, &mask);
        *unfinished = mask == 0;
        return rv;
    }

    static int has_port(uint32_t port, bool *found)
    {
        int gport = 0;
        const int rv = sdk_result(bcm_port_gport_get, kUnit, static_cast<int>(port), &gport);
        *found = rv == BCM_E_NONE;
        if (rv == BCM_E_NONE || rv == kInvalidPort)
            return 0;
        log_port_failure({__func__, __LINE__, "bcm_port_gport_get"}, port, rv);
        return rv;
    }

    int install(int entry, uint32_t port)
    {
        bool created = false;
        int rv = ensure_entry(entries_.group, entry, &created);
        if (created)
            created_[count_++] = entry;
        if (rv == 0)
            rv = qualify_port(entry, port);
        if (rv == 0)
            rv = qualify_tag(entry, entries_.is_tagged);
        return rv;
    }

    const char *caller_;
    DefaultEntries entries_;
    FieldEntryList present_;
    int created_[kPortsWithEntries];
    int count_ = 0;
};

} // namespace

DDAL_WEAK int ddal_bcm_ifp_install_default_field_groups()
{
    return create_field_groups(__func__);
}

DDAL_WEAK int ddal_bcm_ifp_install_default_untagged_entries()
{
    return Installation(__func__, {kFrames, kUntagged, false}).run();
}

DDAL_WEAK int ddal_bcm_ifp_install_default_tagged_entries()
{
    return Installation(__func__, {kFrames, kTagged, true}).run();
}

DDAL_WEAK int ddal_bcm_ifp_install_default_untagged_dstmac_entries()
{
    return Installation(__func__, {kAddresses, kUntaggedAddress, false}).run();
}

DDAL_WEAK int ddal_bcm_ifp_install_default_tagged_dstmac_entries()
{
    return Installation(__func__, {kAddresses, kTaggedAddress, true}).run();
}

// A tunnel that needs this entry writes its ports.
DDAL_WEAK int ddal_bcm_ifp_install_default_tunnel_drop_entry()
{
    bool created = false;
    int rv = sdk_result(bcm_field_entry_create_id, kUnit, kDrops, kTunnelDrop);
    if (rv == BCM_E_NOT_FOUND)
        return 0; // the device lacks this group
    created = rv == BCM_E_NONE;
    if (rv == BCM_E_NONE || rv == BCM_E_EXISTS)
        rv = sdk_result(bcm_field_action_add, kUnit, kTunnelDrop, bcmFieldActionDrop, uint32_t{0}, uint32_t{0});
    if (rv == BCM_E_NONE || rv == BCM_E_EXISTS)
        return 0;
    if (created)
        sdk_result(bcm_field_entry_destroy, kUnit, kTunnelDrop);
    return log_error(DDAL_ERR_FAILURE, "installing field entry %d failed: %s\n", kTunnelDrop, sdk_text(rv));
}
