// Default bodies of the external multiport switch, for boards without it.
#include <ddal/ex_switch.h>

#include <cerrno>

DDAL_WEAK int is_BH3_type_multiport_switch()
{
    return -1;
}

DDAL_WEAK int ex_switch_phy_set_autoneg(uint32_t, uint32_t)
{
    return -ENOSYS;
}

DDAL_WEAK int ex_switch_phy_get_autoneg(uint32_t, uint32_t *)
{
    return -ENOSYS;
}

DDAL_WEAK int ex_switch_phy_set_duplex_mode(uint32_t, uint32_t)
{
    return -ENOSYS;
}

DDAL_WEAK int ex_switch_phy_get_duplex_mode(uint32_t, uint32_t *)
{
    return -ENOSYS;
}

DDAL_WEAK int ex_switch_phy_set_speed(uint32_t, uint32_t)
{
    return -ENOSYS;
}

DDAL_WEAK int ex_switch_phy_get_speed(uint32_t, uint32_t *)
{
    return -ENOSYS;
}

DDAL_WEAK int ex_switch_phy_get_copper_loopback(uint32_t, uint32_t *)
{
    return -ENOSYS;
}

DDAL_WEAK int ex_switch_phy_set_copper_loopback(uint32_t, uint32_t)
{
    return -ENOSYS;
}

DDAL_WEAK int ex_switch_phy_copper_get_status(uint32_t, struct ddal_phy_copper_status *)
{
    return -ENOSYS;
}

DDAL_WEAK int ex_switch_phy_copper_restart_autoneg(uint32_t)
{
    return -ENOSYS;
}

DDAL_WEAK int ex_switch_phy_copper_power(uint32_t, uint32_t)
{
    return -ENOSYS;
}

DDAL_WEAK int ex_switch_phy_copper_reset(uint32_t)
{
    return -ENOSYS;
}

DDAL_WEAK int ex_switch_phy_copper_set_config_advert(uint32_t, uint32_t, uint32_t, uint32_t)
{
    return -ENOSYS;
}

DDAL_WEAK int ex_switch_phy_copper_get_config_advert(uint32_t, uint32_t, uint32_t, uint16_t *)
{
    return -ENOSYS;
}

DDAL_WEAK int ex_switch_phy_copper_set_crossover_mode(uint32_t, uint32_t)
{
    return -ENOSYS;
}

DDAL_WEAK int ex_switch_phy_copper_get_crossover_mode(uint32_t, uint16_t *)
{
    return -ENOSYS;
}

DDAL_WEAK int ex_switch_phy_copper_set_config_advert_pause_frames(uint32_t, uint32_t, uint32_t)
{
    return -ENOSYS;
}

DDAL_WEAK int ex_switch_phy_copper_get_config_advert_pause_frames(uint32_t, uint16_t *, uint16_t *)
{
    return -ENOSYS;
}
