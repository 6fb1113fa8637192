// Sends a port's frames for one address to another port. A filter has two entries, for frames without and with a tag.
// The first filter of a port uses the default entries, further ones bring theirs.
#include <ddal/bcm_open.h>
#include <ddal/eth_switch.h>

#include <cerrno>
#include <cstring>

#include "switch/broadcom/bounded_list.h"
#include "switch/broadcom/field_entry.h"
#include "switch/broadcom/port.h"

using namespace ddal::ethswitch;

namespace {

static_assert(sizeof(ddal_eth_switch_multicast_filter) == 12);

constexpr int kTagDistance = kTaggedAddress - kUntaggedAddress;

struct Filter {
    int untagged; // number of the entry; the tagged one is kTagDistance further
    bool is_default;
    bool exists;
    uint32_t dst_port;
    uint8_t mac[6];
};

// Returns the place of the n-th filter of a port.
Filter place_of(uint32_t port, int n)
{
    const int first = n == 0 ? kUntaggedAddress : kFurtherAddresses + (n - 1) * kAddressStep;
    return {first + static_cast<int>(port), n == 0, false, 0, {}};
}

// Finds a filter by either entry, so that a filter with a missing half can be repaired and removed.
int read_filter(const FieldEntryList &entries, Filter *filter)
{
    for (const int entry : {filter->untagged, filter->untagged + kTagDistance}) {
        if (!entries.holds(entry))
            continue;
        std::optional<FieldAction> action;
        if (const int rv = read_action(entry, bcmFieldActionRedirect, &action); rv != 0)
            return rv;
        if (!action)
            continue;
        uint8_t mask[6];
        filter->exists = true;
        filter->dst_port = port_of_redirection(*action);
        return sdk_on_entry(entry, bcm_field_qualify_DstMac_get, &filter->mac, &mask);
    }
    return 0;
}

// Calls visit(filter) for each place of the port, taken or not, until it returns true.
template <typename Visit>
int for_each_place(uint32_t port, const FieldEntryList &entries, Visit visit)
{
    for (int n = 0; port < kPortsWithEntries && n < kAddressesOfPort; n++) {
        Filter filter = place_of(port, n);
        if (const int rv = read_filter(entries, &filter); rv != 0)
            return rv;
        if (visit(filter))
            return 0;
    }
    return 0;
}

struct Search {
    FieldEntryList entries;
    std::optional<Filter> found; // the filter for the address
    std::optional<Filter> room;  // otherwise the first free place
};

int search(uint32_t port, const uint8_t mac[6], Search *result)
{
    const int rv = result->entries.read(kAddresses);
    return rv != 0 ? rv : for_each_place(port, result->entries, [&](const Filter &filter) {
        if (filter.exists && memcmp(filter.mac, mac, sizeof filter.mac) == 0)
            result->found = filter;
        else if (!filter.exists && !result->room)
            result->room = filter;
        return result->found.has_value();
    });
}

int remove_entry(int entry, bool is_default)
{
    return is_default ? take_action(entry, bcmFieldActionRedirect, bcmFieldActionEgressMask) : destroy_entry(entry);
}

// Writes one of the two entries. Restores it after a failure.
int put_entry(int entry, uint32_t port, bool is_tagged, const uint8_t mac[6], const FieldAction &action)
{
    uint8_t address[6];
    uint8_t whole[6];
    memcpy(address, mac, sizeof address);
    memset(whole, 0xFF, sizeof whole);
    bool created = false;
    int rv = ensure_entry(kAddresses, entry, &created);
    if (rv == 0 && created)
        rv = qualify_port(entry, port);
    if (rv == 0 && created)
        rv = qualify_tag(entry, is_tagged);
    if (rv == 0)
        rv = sdk_on_entry(entry, bcm_field_qualify_DstMac, &address[0], &whole[0]);
    if (rv == 0)
        rv = put_action(entry, bcmFieldActionRedirect, action);
    if (rv != 0 && created)
        sdk_result(bcm_field_entry_destroy, kUnit, entry);
    return rv;
}

int put_filter(uint32_t port, uint32_t dst_port, const uint8_t mac[6], const Filter &place)
{
    int gport = 0;
    int rv = sdk_on_port(dst_port, bcm_port_gport_get, &gport);
    const FieldAction action{0, static_cast<uint32_t>(gport)};
    if (rv == 0)
        rv = put_entry(place.untagged, port, false, mac, action);
    if (rv != 0)
        return rv;
    rv = put_entry(place.untagged + kTagDistance, port, true, mac, action);
    if (rv != 0 && !place.exists)
        remove_entry(place.untagged, place.is_default);
    return rv;
}

int remove_filter(const FieldEntryList &entries, const Filter &filter)
{
    int rv = 0;
    for (const int entry : {filter.untagged, filter.untagged + kTagDistance})
        if (rv == 0 && entries.holds(entry))
            rv = remove_entry(entry, filter.is_default);
    return rv;
}

} // namespace

DDAL_WEAK int ddal_bcm_ifp_dstmac_filtered_redirect_frame_action_add(uint32_t port, uint32_t dst_port,
                                                                     const uint8_t *mac)
{
    if (check_port(__func__, port) != 0 || check_port(__func__, dst_port) != 0 || check_given(__func__, mac) != 0 ||
        open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    Search result;
    if (search(port, mac, &result) != 0)
        return log_error(DDAL_ERR_FAILURE, "Adding an address filter failed on port %u\n", port);
    if (result.found && result.found->dst_port != dst_port)
        return log_error(-EEXIST, "port %u sends frames to this address to port %u already\n", port,
                         result.found->dst_port);
    if (!result.found && !result.room)
        return log_error(-ENOSPC, "port %u has no room for another address filter\n", port);
    if (put_filter(port, dst_port, mac, result.found ? *result.found : *result.room) != 0)
        return log_error(DDAL_ERR_FAILURE, "Adding an address filter failed on port %u\n", port);
    return 0;
}

DDAL_WEAK int ddal_bcm_ifp_dstmac_filtered_redirect_frame_action_remove(uint32_t port, uint32_t dst_port,
                                                                        const uint8_t *mac)
{
    if (check_given(__func__, mac) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    Search result;
    if (search(port, mac, &result) != 0)
        return log_error(DDAL_ERR_FAILURE, "Removing an address filter failed on port %u\n", port);
    if (!result.found || result.found->dst_port != dst_port)
        return log_error(-ENOENT, "port %u has no such address filter to port %u\n", port, dst_port);
    if (remove_filter(result.entries, *result.found) != 0)
        return log_error(DDAL_ERR_FAILURE, "Removing an address filter failed on port %u\n", port);
    return 0;
}

DDAL_WEAK int ddal_bcm_ifp_dstmac_filtered_redirect_frame_action_exists(uint32_t port, uint32_t dst_port,
                                                                        const uint8_t *mac)
{
    if (check_given(__func__, mac) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    Search result;
    if (search(port, mac, &result) != 0)
        return log_error(DDAL_ERR_FAILURE, "Reading the address filters of port %u failed\n", port);
    return result.found && result.found->dst_port == dst_port;
}

DDAL_WEAK int ddal_bcm_ifp_dstmac_filtered_redirect_frame_action_get(uint32_t port,
                                                                     struct ddal_eth_switch_multicast_filter *list,
                                                                     uint32_t *size)
{
    if (check_list(__func__, list, size) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    FieldEntryList entries;
    BoundedList<ddal_eth_switch_multicast_filter> filters{list, *size};
    int rv = entries.read(kAddresses);
    if (rv == 0)
        rv = for_each_place(port, entries, [&](const Filter &filter) {
            ddal_eth_switch_multicast_filter entry{};
            memcpy(entry.mac, filter.mac, sizeof entry.mac);
            entry.dst_port = filter.dst_port;
            if (filter.exists)
                filters.add(entry);
            return false;
        });
    if (rv != 0)
        return log_error(DDAL_ERR_FAILURE, "Reading the address filters of port %u failed\n", port);
    return filters.settle(size);
}
