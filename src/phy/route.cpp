#include "phy/route.h"

#include <ddal/devicetree.h>
#include <ddal/ex_switch.h>
#include <ddal/phy.h>
#include <ddal/unit.h>

#include "core/log.h"

namespace ddal::phy {

namespace {

constexpr uint32_t kSwitchDevId = 3;   // the interface that can carry an external multiport switch,
constexpr uint32_t kInterfacePort = 4; // which then serves it at this port
constexpr uint32_t kMbo2500BhPort = 3;

} // namespace

bool has_phy_access()
{
    return ddal_unit_get_board() != kBoardWithoutPhys;
}

int Route::find()
{
    // The external switch at backhaul port 3 is found without looking at an interface.
    if (ddal_unit_get_board() == kMboBoard)
        return find_on_mbo();
    int rc = find_behind_backhaul_3();
    if (rc != 0 || back_end_ == BackEnd::kMarvell)
        return rc;
    rc = find_interface(operation_.caller, phy_dev_, &interface_);
    if (rc == 0)
        find_behind_soc_port();
    return rc;
}

int Route::find_first()
{
    if (ddal_unit_get_board() == kMboBoard)
        return find_on_mbo();
    return find_interface(operation_.caller, phy_dev_, &interface_);
}

int Route::find_behind_interface()
{
    const int rc = find_behind_backhaul_3();
    if (rc == 0 && back_end_ == BackEnd::kLocal)
        find_behind_soc_port();
    return rc;
}

int Route::find_on_mbo()
{
    back_end_ = BackEnd::kBroadcom;
    ddal_phy_association association{};
    const int rc = ddal_phy_get_association(phy_dev_, &association);
    if (rc != 0)
        return finish(rc);
    port_ = static_cast<uint32_t>(association.switch_port);

    uint32_t type = kTypeUnset;
    if (operation_.rule == Rule::kCachedType && association.bh_port == kMbo2500BhPort)
        get_cached_bh_type(&type);
    if (operation_.rule == Rule::kCachedType && type != kTypeMbo2500)
        back_end_ = BackEnd::kLocal;
    return 0;
}

int Route::find_behind_backhaul_3()
{
    if (phy_dev_ != kBackhaul3Device)
        return 0;

    uint32_t type = 0;
    bool served = false;
    if (operation_.rule == Rule::kCachedType) {
        get_cached_bh_type(&type);
        served = type == kTypeMarvellPort3;
    } else {
        if (ddal_devicetree_get_user_defined_a_backhaul_3_type(&type) != 0)
            return log_error_as(operation_.caller, DDAL_ERR_FAILURE, "Couldn't retrieve BH3 type\n");
        served = type == kFittedSwitchPort;
        if (!served && type != kFittedCopper)
            return log_error_as(operation_.caller, DDAL_ERR_FAILURE, "Invalid backhaul3 type (0x%x)\n", type);
    }
    if (served) {
        back_end_ = BackEnd::kMarvell;
        port_ = phy_dev_;
    }
    return 0;
}

void Route::find_behind_soc_port()
{
    if (interface_.dev_id == kSwitchDevId && is_BH3_type_multiport_switch() != -1) {
        back_end_ = BackEnd::kMarvell;
        port_ = kInterfacePort;
    }
}

int Route::finish(int rc) const
{
    if (back_end_ == BackEnd::kBroadcom) {
        if (rc == 0)
            return 0;
        return log_error_as(operation_.caller, DDAL_ERR_FAILURE, "MBO board %s error: %d\n", operation_.mbo_text,
                            static_cast<int>(phy_dev_));
    }
    if (rc == DDAL_ERR_FAILURE && port_ == kInterfacePort)
        log_line_as(LOG_ERR, operation_.caller, "%s failed for interface 0x%x[%s]\n", operation_.marvell, phy_dev_,
                    interface_.name);
    return rc;
}

int Route::check_copper() const
{
    return has_phy_access() ? is_interface_copper(phy_dev_, interface_.dev_id) : 0;
}

} // namespace ddal::phy
