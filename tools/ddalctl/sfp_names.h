// Texts for the codes of an SFP module.
#pragma once

#include <cstdint>
#include <string>

namespace ddalctl {

// `connector` in the numbering of ddal_sfp_connector_value_get.
std::string sfp_connector_name(uint32_t connector);

// `bit` as ddal_sfp_interpret_compliance_codes lists it.
std::string sfp_compliance_name(uint32_t bit);

// The revision of the diagnostics interface, such as "11.3".
std::string sfp_revision_name(uint32_t code);

} // namespace ddalctl
