#include "ddalctl/families.h"

namespace ddalctl {

const std::vector<Family> &families()
{
    static const std::vector<Family> all = {
        doctor_family(), board_family(),  devicetree_family(),  sysinfo_family(), fpga_family(),
        cpld_family(),   dfe_family(),    power_meter_family(), rf_fpga_family(), slow_measurement_family(),
        laa_family(),    rfcard_family(), sfp_family(),         phy_family(),     link_family(),
        switch_family(), alarm_family(),  events_family(),      aif_family(),     frame_family(),
        clock_family(),  led_family(),    ffs_family(),         boot_family(),    watchdog_family(),
        ready_family(),  reboot_family(), password_family(),    ssh_family(),     root_access_family(),
        mem_family(),    cma_family(),    atboot_family(),
    };
    return all;
}

} // namespace ddalctl
