// The properties of the device tree by name, for all commands that report them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace ddalctl {

class Report;

struct IdentityText {
    const char *name;
    int (*read)(size_t size, char *text);
};

struct IdentityNumber {
    const char *name;
    int (*read)(uint32_t *value);
};

std::span<const IdentityText> identity_texts();
std::span<const IdentityNumber> identity_numbers();

// Throw Failure.
std::string text_of(const IdentityText &row);
uint32_t number_of(const IdentityNumber &row);
std::string mac_address(const std::string &interface);

// Reports a property that cannot be read as missing.
void add_if_there(Report &report, const IdentityText &row);
void add_if_there(Report &report, const IdentityNumber &row);
void add_mac_if_there(Report &report, const std::string &interface);

} // namespace ddalctl
