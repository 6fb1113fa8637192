// The families of commands, in the order in which help and manual list them.
#pragma once

#include <vector>

#include "ddalctl/command.h"

namespace ddalctl {

Family aif_family();
Family alarm_family();
Family atboot_family();
Family board_family();
Family boot_family();
Family clock_family();
Family cma_family();
Family cpld_family();
Family devicetree_family();
Family dfe_family();
Family doctor_family();
Family events_family();
Family ffs_family();
Family fpga_family();
Family frame_family();
Family laa_family();
Family led_family();
Family link_family();
Family mem_family();
Family password_family();
Family phy_family();
Family power_meter_family();
Family ready_family();
Family reboot_family();
Family rf_fpga_family();
Family rfcard_family();
Family root_access_family();
Family sfp_family();
Family slow_measurement_family();
Family ssh_family();
Family switch_family();
Family sysinfo_family();
Family watchdog_family();

const std::vector<Family> &families();

} // namespace ddalctl
