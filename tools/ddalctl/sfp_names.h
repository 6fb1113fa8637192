// What the codes of an SFP module mean.
#pragma once

#include <cstdint>
#include <string>

namespace ddalctl {

// Of the library's own numbering.
std::string sfp_connector_name(uint32_t connector);

// Of the bits that ddal_sfp_interpret_compliance_codes lists.
std::string sfp_compliance_name(uint32_t bit);

// "11.3"; of the diagnostics interface.
std::string sfp_revision_name(uint32_t code);

} // namespace ddalctl
