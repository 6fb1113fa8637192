// The open ends of one channel or notifying node. A model acts on all of them at once.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/unique_fd.h"

namespace vboard {

using ddal::core::UniqueFd;

class Channels {
public:
    // Also lets go of the ends that programs have closed.
    void add(UniqueFd end);
    size_t count() const { return ends_.size(); }

    // Sends a record to every program. Does not wait for slow readers: a program that does not read loses records.
    void send(std::span<const uint8_t> record);

    // Raises priority input (POLLPRI) at every program. It lasts until the program clears it: by reading the attribute
    // (kind "notify"), or by the poll that reports it (kind "signal").
    void signal();

    // Disconnects the device: every program reads the end of its channel.
    void hang_up() { ends_.clear(); }

private:
    void send_to_all(std::span<const uint8_t> bytes, int flags);

    std::vector<UniqueFd> ends_;
    size_t prune_at_ = 16; // doubles with the ends that are in use
};

} // namespace vboard
