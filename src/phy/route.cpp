#include "phy/route.h"

#include <ddal/devicetree.h>
#include <ddal/phy.h>

#include <cerrno>

#include "core/log.h"
#include "identity/boards.h"

using ddal::identity::this_board;

namespace ddal::phy {

namespace {

constexpr uint32_t kSocPortSwitchPort = 4; // port of an external switch for the SoC port that connects it

} // namespace

int Route::admit(const Operation &operation, bool output_missing) const
{
    const bool needs_phys = operation.needs == Needs::kPhys || operation.needs == Needs::kPhysAndCopper;
    if (needs_phys && !this_board().phys)
        return -ENOSYS;
    if (output_missing)
        return log_error_as(caller_, DDAL_ERR_FAILURE, "%s is NULL\n", operation.output);
    return 0;
}

int Route::find(const Operation &operation)
{
    // The external switch at backhaul port 3 is found without an interface.
    if (this_board().broadcom_switch)
        return find_on_mbo(operation);
    int rc = find_behind_backhaul_3(operation);
    if (rc != 0 || back_end_ == BackEnd::kExternal)
        return rc;
    rc = find_interface(caller_, phy_dev_, &found_);
    if (rc == 0)
        find_behind_soc_port();
    return rc;
}

int Route::find_first(const Operation &operation)
{
    return this_board().broadcom_switch ? find_on_mbo(operation) : find_interface(caller_, phy_dev_, &found_);
}

int Route::find_behind_interface(const Operation &operation)
{
    const int rc = find_behind_backhaul_3(operation);
    if (rc == 0 && back_end_ == BackEnd::kLocal)
        find_behind_soc_port();
    return rc;
}

int Route::find_on_mbo(const Operation &operation)
{
    back_end_ = BackEnd::kBroadcom;
    ddal_phy_association association{};
    const int rc = ddal_phy_get_association(phy_dev_, &association);
    if (rc != 0)
        return finish_broadcom(operation, rc);
    port_ = static_cast<uint32_t>(association.switch_port);

    uint32_t type = kTypeUnset;
    if (operation.rule == Rule::kCachedType && association.bh_port == kMbo2500BhPort)
        get_cached_bh_type(&type);
    if (operation.rule == Rule::kCachedType && type != kTypeMbo2500)
        back_end_ = BackEnd::kLocal;
    return 0;
}

int Route::find_behind_backhaul_3(const Operation &operation)
{
    if (phy_dev_ != kBackhaul3Device)
        return 0;

    uint32_t type = 0;
    bool served = false;
    if (operation.rule == Rule::kCachedType) {
        get_cached_bh_type(&type);
        served = type == kTypeMarvellPort3;
    } else {
        if (ddal_devicetree_get_user_defined_a_backhaul_3_type(&type) != 0)
            return log_error_as(caller_, DDAL_ERR_FAILURE, "Couldn't retrieve BH3 type\n");
        served = type == kFittedSwitchPort;
        if (!served && type != kFittedCopper)
            return log_error_as(caller_, DDAL_ERR_FAILURE, "Invalid backhaul3 type (0x%x)\n", type);
    }
    if (served) {
        back_end_ = BackEnd::kExternal;
        port_ = phy_dev_;
    }
    return 0;
}

void Route::find_behind_soc_port()
{
    if (carries_external_switch(found_.dev_id)) {
        back_end_ = BackEnd::kExternal;
        port_ = kSocPortSwitchPort;
    }
}

int Route::finish_broadcom(const Operation &operation, int rc) const
{
    if (rc == 0)
        return 0;
    return log_error_as(caller_, DDAL_ERR_FAILURE, "MBO board %s error: %d\n", operation.mbo_text,
                        static_cast<int>(phy_dev_));
}

int Route::finish_external(const Operation &operation, int rc) const
{
    if (rc == DDAL_ERR_FAILURE && port_ == kSocPortSwitchPort)
        log_line_as(LOG_ERR, caller_, "%s failed for interface 0x%x[%s]\n", operation.external, phy_dev_, found_.name);
    return rc;
}

int Route::refuse_external() const
{
    return log_error_as(caller_, -ENOSYS, "no master/slave operation on switch port %u\n", port_);
}

int Route::check_copper(const Operation &operation) const
{
    // Leaves a board without PHYs to the register access, which refuses it.
    const bool needs_copper = operation.needs == Needs::kCopper || operation.needs == Needs::kPhysAndCopper;
    return needs_copper && this_board().phys ? is_interface_copper(phy_dev_, found_.dev_id) : 0;
}

} // namespace ddal::phy
