// The settings of a PHY device by name.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "ddalctl/command.h"

namespace ddalctl {

struct PhySetting {
    const char *name;
    std::span<const Choice> values;
    int (*get)(uint32_t device, uint32_t *value);
    int (*set)(uint32_t device, uint32_t value); // null: read-only
    bool is_number = false;                      // each word is its value in decimal
    bool is_switch = false;                      // off or on
    bool is_passive = true;                      // reading does not change the PHY
};

std::span<const PhySetting> phy_settings();
const PhySetting &phy_setting_named(const std::string &name); // throws WrongUse
std::string names_of_phy_settings();

// The word for a value, as the user types it.
std::string word_of(const PhySetting &setting, uint32_t value);

} // namespace ddalctl
