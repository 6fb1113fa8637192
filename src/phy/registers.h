// Registers of the PHYs on the SoC's MDIO bus.
#pragma once

#include <cstdint>

namespace ddal::phy {

// Standard registers
constexpr uint32_t kControl = 0;
constexpr uint32_t kIdentity1 = 2;
constexpr uint32_t kIdentity2 = 3;
constexpr uint32_t kAdvertisement = 4;
constexpr uint32_t kExpansion = 6;
constexpr uint32_t kGigabitControl = 9;
constexpr uint32_t kGigabitStatus = 10;
constexpr uint32_t kMmdControl = 13;
constexpr uint32_t kMmdData = 14;
constexpr uint32_t kSpecificControl = 16; // specific to the maker

constexpr uint16_t kControlReset = 0x8000;
constexpr uint16_t kControlLoopback = 0x4000;
constexpr uint16_t kControlPowerDown = 0x0800;
constexpr uint16_t kControlAutonegRestart = 0x1200; // enables auto-negotiation and restarts it

// Finds the phy_regs node of an interface's PHY. Returns 0 or DDAL_ERR_FAILURE.
int get_phy_regs_filename(uint32_t dev_id, const char **filename);

// Reads a standard register through the operations of phy.h, keeps only the bits of `keep`, adds those of `set` and
// writes it back. Returns 0 or the code of those operations.
int change_register(uint32_t phy_dev, uint32_t reg, uint16_t keep, uint16_t set);

} // namespace ddal::phy

// Read or write one register through the node. Return 0 or DDAL_ERR_FAILURE.
int ddal_phy_read_direct(uint32_t dev_id, uint32_t reg, uint32_t page, uint16_t *data);
int ddal_phy_write_direct(uint32_t dev_id, uint32_t reg, uint32_t page, uint16_t value);
