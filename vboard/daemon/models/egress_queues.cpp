#include "daemon/models/egress_queues.h"

#include "daemon/models/switch_words.h"

namespace vboard {

namespace {

constexpr int64_t kOctetsOfWeight = 1522; // a turn passes at least one frame

bool counts_octets(int64_t mode)
{
    return mode == BCM_COSQ_WEIGHTED_FAIR_QUEUING || mode == BCM_COSQ_DEFICIT_ROUND_ROBIN;
}

} // namespace

void EgressQueues::schedule(int64_t mode, const std::array<int64_t, kQueues> &weights)
{
    mode_ = mode;
    weights_ = weights;
    credits_ = {};
    is_credited_ = false;
}

bool EgressQueues::put(QueuedFrame frame)
{
    std::deque<QueuedFrame> &queue = queues_[static_cast<size_t>(frame.queue)];
    if (queue.size() == kRoom)
        return false;
    queue.push_back(std::move(frame));
    ++waiting_;
    return true;
}

void EgressQueues::clear()
{
    for (auto &queue : queues_)
        queue.clear();
    waiting_ = 0;
}

// Returns the frames or octets that a queue may send in one turn, or 0 for strict priority.
int64_t EgressQueues::credit_of(size_t queue) const
{
    if (mode_ == BCM_COSQ_ROUND_ROBIN)
        return 1;
    if (mode_ == BCM_COSQ_WEIGHTED_ROUND_ROBIN)
        return weights_[queue];
    return counts_octets(mode_) ? weights_[queue] * kOctetsOfWeight : 0;
}

int64_t EgressQueues::cost_of(const QueuedFrame &frame) const
{
    return counts_octets(mode_) ? frame.frame.length() : 1;
}

void EgressQueues::pass_turn()
{
    turn_ = (turn_ + 1) % kQueues;
    is_credited_ = false;
}

const QueuedFrame *EgressQueues::next()
{
    if (waiting_ == 0)
        return nullptr;
    for (size_t queue = kQueues; queue-- > 0;)
        if (!queues_[queue].empty() && !has_turns(queue))
            return &queues_[queue].front();
    for (;; pass_turn()) {
        if (queues_[turn_].empty()) {
            credits_[turn_] = 0; // a queue without frames saves nothing up
            continue;
        }
        if (!is_credited_)
            credits_[turn_] += credit_of(turn_);
        is_credited_ = true;
        if (credits_[turn_] >= cost_of(queues_[turn_].front()))
            return &queues_[turn_].front();
    }
}

QueuedFrame EgressQueues::take()
{
    const auto queue = static_cast<size_t>(next()->queue);
    QueuedFrame frame = std::move(queues_[queue].front());
    if (has_turns(queue))
        credits_[queue] -= cost_of(frame);
    queues_[queue].pop_front();
    --waiting_;
    return frame;
}

} // namespace vboard
