// Devices of a few lines each: power meter, jitter cleaner, uptime daemon.
#pragma once

#include "daemon/channels.h"
#include "daemon/model.h"

namespace vboard {

// RF power meter: a record to every open channel at a period that follows the loop counter, or on demand.
class PowerMeter : public Model {
public:
    using Model::Model;
    void start() override;
    int open(const Node &, uint32_t flags, UniqueFd end) override;
    static ControlTable commands();

private:
    void schedule();

    Channels channels_;
    uint32_t count_ = 0;
    bool running_ = false;
};

// The jitter cleaner's SPI register: three bytes, most significant first. Its lock state follows bit 0 of what is
// written.
class JitterCleaner : public Model {
public:
    using Model::Model;
    int write(const Node &, uint64_t offset, std::span<const uint8_t> in) override;
    static ControlTable commands();

private:
    uint32_t register_ = 0;
};

// The uptime daemon's socket: eight bytes of milliseconds to whoever connects.
class Uptime : public Model {
public:
    using Model::Model;
    void start() override;
    static ControlTable commands();

private:
    void serve();

    UniqueFd listener_;
    std::vector<UniqueFd> kept_; // connections that get no answer
    uint64_t base_ms_ = 0;
    int64_t base_ns_ = 0;
    enum { kNormal, kShort, kSilent } manner_ = kNormal;
};

} // namespace vboard
