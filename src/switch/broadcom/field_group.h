// Groups of the switch's field entries, and the numbers of the entries. A port's entry for untagged frames has the
// port's number, the entry for tagged frames the port plus 50. The entries that also match a destination address have
// the port plus 100 and plus 150.
#pragma once

#include <cstdint>

#include "switch/broadcom/sdk_call.h"

namespace ddal::ethswitch {

constexpr uint32_t kPortsWithEntries = 50;

constexpr int kUntagged = 0;
constexpr int kTagged = 50;
constexpr int kUntaggedAddress = 100;
constexpr int kTaggedAddress = 150;
constexpr int kTunnelDrop = 200; // one entry
constexpr int kCommonMask = 201; // one entry
constexpr int kEthertype = 250;  // by port
constexpr int kPortMask = 300;   // by port
// By port: untagged, plus 50 tagged. Each further address adds 100.
constexpr int kFurtherAddresses = 400;
constexpr int kAddressStep = 100;
constexpr int kAddressesOfPort = 8;

// A redirection of a group with a higher priority wins: a port's tunnel for all frames comes before the tunnel for an
// ethertype, which comes before the tunnel for an address. Redirections and egress masks exclude each other on one
// entry.
enum FieldGroup : int { kFrames = 1, kAddresses = 2, kEthertypes = 3, kMasks = 4, kDrops = 5 };

// Creates the groups, or takes over existing ones. Returns 0, or DDAL_ERR_FAILURE, logged. On failure removes
// everything that it created.
int create_field_groups(const char *caller);

// The entries of a group.
class FieldEntryList {
public:
    // Reads the entries. Returns 0 or the SDK's result, logged. A missing group has no entries.
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
