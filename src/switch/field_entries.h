// The default field entries of the switch's ports, kept in this process. Entries are numbered: a port's entry for
// untagged frames has the port's number, the one for tagged frames the port plus 50, the ones that also match a
// destination address the port plus 100 and plus 150.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <optional>

namespace ddal::ethswitch {

enum FieldGroup : uint32_t { kUntagged = 0, kTagged = 50, kUntaggedAddress = 100, kTaggedAddress = 150 };
constexpr uint32_t kFieldGroupSize = 50;

class FieldEntries {
public:
    void install(FieldGroup group);
    bool is_installed(FieldGroup group, uint32_t port);

    // The queue of a port's untagged frames, if an action sets one. `port` is at most 255.
    void set_queue(uint32_t port, std::optional<uint32_t> queue);
    std::optional<uint32_t> queue(uint32_t port);

    // Whether an action keeps the priority of a port's tagged frames. Tells DSCP mapping from PCP mapping, so it is
    // noted here as well when a product's own operation added the action.
    void set_preserves_pcp(uint32_t port, bool preserves);
    bool preserves_pcp(uint32_t port);

private:
    std::mutex mutex_;
    std::array<bool, 200> installed_{};
    std::array<std::optional<uint32_t>, 256> queues_;
    std::array<bool, 256> preserves_pcp_{};
};

FieldEntries &field_entries();

} // namespace ddal::ethswitch
