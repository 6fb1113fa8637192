// The open ends of one channel or notifying node, and what a model does to all of them.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/unique_fd.h"

namespace vboard {

using ddal::core::UniqueFd;

class Channels {
public:
    void add(UniqueFd end) { ends_.push_back(std::move(end)); }
    size_t count() const { return ends_.size(); }

    // A record to every program. One that does not read is not waited for: it loses what no longer fits.
    void send(std::span<const uint8_t> record);

    // Priority input (POLLPRI) at every program. It lasts until the program takes it: by reading the attribute (kind
    // "notify"), or by the poll that reports it (kind "signal").
    void signal();

    // The device goes away: every program reads the end of its channel.
    void hang_up() { ends_.clear(); }

private:
    void send_to_all(std::span<const uint8_t> bytes, int flags);

    std::vector<UniqueFd> ends_;
};

} // namespace vboard
