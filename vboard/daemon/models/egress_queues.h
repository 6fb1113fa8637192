// The queues of a port that sends more slowly than frames come, and the scheduler that picks the next frame.
#pragma once

#include <array>
#include <cstdint>
#include <deque>

#include "daemon/models/ethernet_frame.h"

namespace vboard {

struct QueuedFrame {
    int64_t queue;
    int64_t priority;
    EthernetFrame frame;
};

class EgressQueues {
public:
    static constexpr size_t kQueues = 8;
    static constexpr size_t kRoom = 64; // frames of one queue

    // Sets the SDK's scheduling mode and weights. Queues of weight 0 have strict priority: the scheduler serves them
    // first, the highest number before the others. A mode without weights gives all queues strict priority, except
    // round robin.
    void schedule(int64_t mode, const std::array<int64_t, kQueues> &weights);
    int64_t mode() const { return mode_; }
    const std::array<int64_t, kQueues> &weights() const { return weights_; }

    // Returns false if the queue is full.
    bool put(QueuedFrame frame);
    // Returns the frame that leaves next, or nullptr if none waits.
    const QueuedFrame *next();
    // Removes and returns the frame of next(), which must exist.
    QueuedFrame take();
    bool is_empty() const { return waiting_ == 0; }
    void clear();

private:
    bool has_turns(size_t queue) const { return credit_of(queue) > 0; }
    int64_t credit_of(size_t queue) const;
    int64_t cost_of(const QueuedFrame &frame) const;
    void pass_turn();

    int64_t mode_ = 0;
    std::array<int64_t, kQueues> weights_{};
    std::array<std::deque<QueuedFrame>, kQueues> queues_;
    std::array<int64_t, kQueues> credits_{}; // frames or octets that a queue may still send in its turn
    size_t waiting_ = 0;
    size_t turn_ = 0;
    bool is_credited_ = false;
};

} // namespace vboard
