#include "switch/external/place.h"

#include <ddal/sysinfo.h>

#include <cerrno>
#include <cinttypes>

#include "core/log.h"
#include "identity/boards.h"
#include "switch/external/mdio.h"
#include "switch/external/registers.h"

namespace ddal::external {

namespace {

// Items of the system-information store
constexpr uint32_t kCategory = 0;
constexpr uint32_t kKey = 6320;

struct Item {
    uint32_t field;
    uint64_t most;
    uint64_t step; // values are multiples of it
    const char *name;
};

constexpr Item kWay{1, 2, 1, "way"};
constexpr Item kStrap{2, 30, 2, "address"};
constexpr Item kInterface{3, 3, 1, "interface"};
constexpr uint8_t kDefaultInterface = 3; // of the SoC port that connects the switch

// Replaces *value if the store has the item. Returns 1 if it has, 0 if not, or DDAL_ERR_FAILURE.
int read_item(const char *caller, const Item &item, uint8_t *value)
{
    uint64_t stored = 0;
    const int rc = ddal_sysinfo_get_uint(kCategory, kKey, item.field, &stored);
    if (rc == -ENOENT)
        return 0;
    if (rc != 0)
        return log_error_as(caller, DDAL_ERR_FAILURE, "can't read the %s of the multiport switch: %d\n", item.name, rc);
    if (stored > item.most || stored % item.step != 0)
        return log_error_as(caller, DDAL_ERR_FAILURE, "wrong %s of the multiport switch in the store: %" PRIu64 "\n",
                            item.name, stored);
    *value = static_cast<uint8_t>(stored);
    return 1;
}

} // namespace

const char *bus_name()
{
    return identity::this_board().two_mdio_buses ? "0.1" : "2090300.mdio";
}

int find_place(const char *caller, Place *place)
{
    uint8_t way = 0;
    *place = {Way::kInterface, kSingleChip, kDefaultInterface, false};
    const int ways = read_item(caller, kWay, &way);
    const int straps = ways < 0 ? ways : read_item(caller, kStrap, &place->strap);
    const int interfaces = straps < 0 ? straps : read_item(caller, kInterface, &place->interface);
    if (interfaces < 0)
        return interfaces;
    place->is_stored = ways + straps + interfaces != 0;
    if (way != 0)
        place->way = static_cast<Way>(way);
    else if (NodeMdio{bus_name()}.has(place->strap == kSingleChip ? kPort0 : place->strap))
        place->way = Way::kNodes;
    return 0;
}

} // namespace ddal::external
