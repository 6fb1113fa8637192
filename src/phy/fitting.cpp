// Copper fittings of the backhaul ports.
#include <ddal/devicetree.h>

#include "core/log.h"
#include "identity/boards.h"
#include "phy/association.h"

namespace ddal::phy {

namespace {

constexpr uint32_t kCopperType1 = 0x1000;
constexpr uint32_t kCopperType2 = 0x60;

struct Fitting {
    uint32_t dev_id;
    bool crossed; // equals crossed_ports of the board
    int (*read)(uint32_t *type);
    uint32_t copper[2];
};

constexpr Fitting kFittings[] = {
    {0, false, ddal_devicetree_get_user_defined_a_backhaul_1_type, {kCopperType1, kCopperType2}},
    {0, true, ddal_devicetree_get_user_defined_a_backhaul_3_type, {kCopperType1, kCopperType2}},
    {1, false, ddal_devicetree_get_user_defined_a_backhaul_2_type, {kCopperType1, kCopperType2}},
    {1, true, ddal_devicetree_get_user_defined_a_backhaul_2_type, {kCopperType1, kCopperType2}},
    {3, false, ddal_devicetree_get_user_defined_a_backhaul_3_type, {kFittedSwitchPort, kFittedCopper}},
    {3, true, ddal_devicetree_get_user_defined_a_backhaul_3_type, {kFittedSwitchPort, kFittedCopper}},
};

const Fitting *find_fitting(uint32_t dev_id, bool crossed)
{
    for (const Fitting &row : kFittings) {
        if (row.dev_id == dev_id && row.crossed == crossed)
            return &row;
    }
    return nullptr;
}

bool is_mbo_copper(uint32_t phy_dev)
{
    return phy_dev == 0 || phy_dev == 2 || phy_dev == 3;
}

} // namespace

int is_interface_copper(uint32_t phy_dev, uint32_t dev_id)
{
    const identity::Board &board = identity::this_board();
    if (board.broadcom_switch) {
        if (is_mbo_copper(phy_dev))
            return 0;
        return log_error(DDAL_ERR_FAILURE, "phy dev interface is not copper: 0x%x\n", phy_dev);
    }

    uint32_t type = 0;
    const Fitting *const row = find_fitting(dev_id, board.crossed_ports);
    if (!row)
        log_line(LOG_ERR, "non-copper interface dev_id (0x%x)\n", dev_id);
    else if (row->read(&type) != 0)
        log_line(LOG_ERR, "get bh type failed for interface dev_id (0x%x)\n", dev_id);
    else if (type != row->copper[0] && type != row->copper[1])
        log_line(LOG_ERR, "unsupported bh type (0x%x) for interface dev_id (0x%x)\n", type, dev_id);
    else
        return 0;
    return log_error(DDAL_ERR_FAILURE, "interface is not copper dev_id: 0x%x\n", dev_id);
}

} // namespace ddal::phy
