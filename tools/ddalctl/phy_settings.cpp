#include "ddalctl/phy_settings.h"

#include <ddal/phy.h>

#include "ddalctl/failure.h"
#include "ddalctl/library.h"

namespace ddalctl {

namespace {

constexpr Choice kSpeeds[] = {{"10", 10}, {"100", 100}, {"1000", 1000}, {"2500", 2500}, {"10000", 10000}};
constexpr Choice kDuplexes[] = {{"half", DDAL_PHY_HALF_DUPLEX}, {"full", DDAL_PHY_FULL_DUPLEX}};
constexpr Choice kOnOff[] = {{"off", 0}, {"on", 1}};
constexpr Choice kCrossovers[] = {
    {"straight", DDAL_PHY_MDI}, {"crossed", DDAL_PHY_MDIX}, {"automatic", DDAL_PHY_CROSSOVER_AUTO}};
constexpr Choice kRoles[] = {{"slave", DDAL_PHY_SLAVE}, {"master", DDAL_PHY_MASTER}, {"automatic", DDAL_PHY_AUTOMATIC}};
constexpr Choice kPortTypes[] = {{"multi-port", DDAL_PHY_MULTI_PORT}, {"single-port", DDAL_PHY_SINGLE_PORT}};
constexpr Choice kFrequencyCodes[] = {{"0", 0}, {"1", 1}, {"2", 2}, {"3", 3}, {"4", 4}, {"5", 5}, {"6", 6}, {"7", 7}};

int widened(int (*get)(uint32_t device, uint16_t *value), uint32_t device, uint32_t *value)
{
    uint16_t narrow = 0;
    const int rc = get(device, &narrow);
    *value = narrow;
    return rc;
}

int get_role_and_type(uint32_t device, uint32_t *role, uint32_t *type)
{
    uint16_t config = 0;
    uint16_t port_type = 0;
    const int rc = DDAL(ddal_phy_copper_get_master_slave_configuration)(device, &config, &port_type);
    *role = config;
    *type = port_type;
    return rc;
}

int get_role(uint32_t device, uint32_t *role)
{
    uint32_t type = 0;
    return get_role_and_type(device, role, &type);
}

int get_type(uint32_t device, uint32_t *type)
{
    uint32_t role = 0;
    return get_role_and_type(device, &role, type);
}

int set_role(uint32_t device, uint32_t mode)
{
    return DDAL(ddal_phy_copper_set_master_slave)(device, mode);
}

int set_loopback(uint32_t device, uint32_t state)
{
    return state ? DDAL(ddal_phy_copper_loopback_enable)(device) : DDAL(ddal_phy_copper_loopback_disable)(device);
}

// The lambdas look up the library's operations at the call, so that a table can name them without a board.
constexpr PhySetting kSettings[] = {
    {"autoneg", kOnOff, [](uint32_t device, uint32_t *value) { return DDAL(ddal_phy_get_autoneg)(device, 0, value); },
     [](uint32_t device, uint32_t value) { return DDAL(ddal_phy_set_autoneg)(device, 0, value); }, false, true},
    {"speed", kSpeeds, [](uint32_t device, uint32_t *value) { return DDAL(ddal_phy_get_speed)(device, 0, value); },
     [](uint32_t device, uint32_t value) { return DDAL(ddal_phy_set_speed)(device, 0, value); }, true},
    {"duplex", kDuplexes,
     [](uint32_t device, uint32_t *value) { return DDAL(ddal_phy_get_duplex_mode)(device, 0, value); },
     [](uint32_t device, uint32_t value) { return DDAL(ddal_phy_set_duplex_mode)(device, 0, value); }},
    {"loopback", kOnOff,
     [](uint32_t device, uint32_t *value) { return DDAL(ddal_phy_get_loopback_state)(device, value); }, set_loopback,
     false, true},
    {"crossover", kCrossovers,
     [](uint32_t device, uint32_t *value) {
         return widened(DDAL(ddal_phy_copper_get_crossover_mode_configuration), device, value);
     },
     [](uint32_t device, uint32_t value) { return DDAL(ddal_phy_copper_set_crossover_mode)(device, value); }},
    {"clock-role", kRoles, get_role, set_role},
    {"port-type", kPortTypes, get_type, set_role},
    {"recovered-clock", kFrequencyCodes,
     [](uint32_t device, uint32_t *value) { return widened(DDAL(ddal_phy_get_rclk_freq), device, value); },
     [](uint32_t device, uint32_t value) { return DDAL(ddal_phy_set_rclk_freq)(device, static_cast<uint16_t>(value)); },
     true},
    // The role that the partners agreed on. Reading it also clears a bit of register 6.
    {"negotiated-role", kRoles,
     [](uint32_t device, uint32_t *value) { return widened(DDAL(ddal_phy_copper_get_master_slave), device, value); },
     nullptr, false, false, false},
};

} // namespace

std::span<const PhySetting> phy_settings()
{
    return kSettings;
}

std::string names_of_phy_settings()
{
    std::string names;
    for (const PhySetting &setting : kSettings)
        names += (names.empty() ? "" : ", ") + std::string(setting.name);
    return names;
}

const PhySetting &phy_setting_named(const std::string &name)
{
    for (const PhySetting &setting : kSettings) {
        if (name == setting.name)
            return setting;
    }
    throw WrongUse("SETTING: \"" + name + "\" is not one of " + names_of_phy_settings());
}

std::string word_of(const PhySetting &setting, uint32_t value)
{
    for (const Choice &row : setting.values) {
        if (row.value == value)
            return row.word;
    }
    return "code " + std::to_string(value);
}

} // namespace ddalctl
