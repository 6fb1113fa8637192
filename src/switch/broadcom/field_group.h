// Groups of the switch's field entries, and how the entries are numbered. A port's entry for untagged frames has the
// port's number, the one for tagged frames the port plus 50, the ones that also match a destination address the port
// plus 100 and plus 150.
#pragma once

#include <cstdint>

#include "switch/broadcom/sdk_call.h"

namespace ddal::ethswitch {

constexpr uint32_t kPortsWithEntries = 50;

constexpr int kUntagged = 0;
constexpr int kTagged = 50;
constexpr int kUntaggedAddress = 100;
constexpr int kTaggedAddress = 150;
constexpr int kTunnelDrop = 200;       // one entry
constexpr int kCommonMask = 201;       // one entry
constexpr int kEthertype = 250;        // by port
constexpr int kPortMask = 300;         // by port
constexpr int kFurtherAddresses = 400; // by port, untagged and plus 50 tagged; the next address 100 further on
constexpr int kAddressStep = 100;
constexpr int kAddressesOfPort = 8;

// A redirection of a group with a higher priority counts: a port's tunnel for all frames comes before the one for an
// ethertype, and that before the one for an address. Redirections and egress masks exclude each other on one entry.
enum FieldGroup : int { kFrames = 1, kAddresses = 2, kEthertypes = 3, kMasks = 4, kDrops = 5 };

// Creates the groups, or takes over those that exist. 0 or -1001, logged; what it created is gone then.
int create_field_groups(const char *caller);

// The entries of a group.
class FieldEntryList {
public:
    // 0 or the SDK's result, logged. A group that does not exist has no entries.
    int read(FieldGroup group);
    bool holds(int entry) const;
    const int *begin() const { return entries_; }
    const int *end() const { return entries_ + count_; }

private:
    static constexpr int kRoom = 1024;
    int entries_[kRoom];
    int count_ = 0;
};

} // namespace ddal::ethswitch
