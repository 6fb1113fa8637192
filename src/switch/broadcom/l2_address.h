// Fields of the switch's address entries. Releases since late 2017 have one more word before the address.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "switch/broadcom/sdk_call.h"

namespace ddal::ethswitch {

class L2Layout {
public:
    // Finds the address in an entry that the SDK has filled. Returns false if the SDK cannot fill one or the layout is
    // unknown.
    bool find()
    {
        constexpr uint8_t kProbe[6] = {0x02, 0xA5, 0x5A, 0xC3, 0x3C, 0x99};
        bcm_l2_addr_t entry{};
        if (!sdk_done(bcm_l2_addr_t_init, &entry, &kProbe[0], uint16_t{1}))
            return false;
        for (const size_t offset : {kNewOffset, kOldOffset}) {
            if (memcmp(bytes(&entry) + offset, kProbe, sizeof kProbe) == 0) {
                mac_ = offset;
                return true;
            }
        }
        return false;
    }

    void read_mac(const bcm_l2_addr_t *entry, uint8_t mac[6]) const { memcpy(mac, bytes(entry) + mac_, 6); }

    uint16_t vlan(const bcm_l2_addr_t *entry) const { return read<uint16_t>(entry, mac_ + kVlanAfterMac); }
    int port(const bcm_l2_addr_t *entry) const { return read<int>(entry, mac_ + kPortAfterMac); }

    void set_port(bcm_l2_addr_t *entry, int port) const
    {
        memcpy(reinterpret_cast<uint8_t *>(entry) + mac_ + kPortAfterMac, &port, sizeof port);
    }

private:
    static constexpr size_t kNewOffset = 12;
    static constexpr size_t kOldOffset = 8;
    static constexpr size_t kVlanAfterMac = 6;
    static constexpr size_t kPortAfterMac = 8;

    static const uint8_t *bytes(const bcm_l2_addr_t *entry) { return reinterpret_cast<const uint8_t *>(entry); }

    template <typename Field>
    static Field read(const bcm_l2_addr_t *entry, size_t offset)
    {
        Field field{};
        memcpy(&field, bytes(entry) + offset, sizeof field);
        return field;
    }

    size_t mac_ = kNewOffset;
};

} // namespace ddal::ethswitch
