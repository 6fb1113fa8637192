// The SDK release that the client library behaves as: its records differ in size and layout.
#pragma once

#include <cstddef>

namespace vboard::client_library {

enum class Release { k6_5_16, k6_5_20, k6_5_24, k6_5_27, kOld };
extern Release release;

struct Sizes {
    size_t action;  // bytes of bcm_vlan_action_set_t
    size_t address; // bytes of bcm_l2_addr_t
    size_t mac;     // offset of the address in it
    size_t qset;    // bytes of bcm_field_qset_t
    size_t group;   // bytes of bcm_field_group_config_t
};
const Sizes &sizes();

// Reports whether this process has completed the start-up.
bool is_attached();

} // namespace vboard::client_library
