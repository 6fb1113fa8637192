#include "daemon/models/frame.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <system_error>

#include "daemon/board.h"

namespace vboard {

using namespace ddal::platform;

namespace {

constexpr size_t kPageSize = 4096;
constexpr int64_t kSecond = 1'000'000'000;

void store(uint32_t &word, uint32_t value)
{
    std::atomic_ref(word).store(value, std::memory_order_relaxed);
}

void store_time(uint32_t &sec, uint32_t &nsec, int64_t ns)
{
    store(sec, static_cast<uint32_t>(ns / kSecond));
    store(nsec, static_cast<uint32_t>(ns % kSecond));
}

void store_wide(uint32_t &low, uint32_t &high, uint64_t value)
{
    store(low, static_cast<uint32_t>(value));
    store(high, static_cast<uint32_t>(value >> 32));
}

// The board's monotonic time of a counter value: 625 ns are 128 counts.
int64_t time_of_counter(uint64_t counter)
{
    constexpr uint64_t kHz = ddal::core::kCpuCounterHz;
    return static_cast<int64_t>(counter / kHz * kSecond + counter % kHz * 625 / 128);
}

} // namespace

Frame::~Frame()
{
    if (page_)
        munmap(page_, kPageSize);
}

void Frame::start()
{
    const UniqueFd fd{::open(board().file(kFrameNode).c_str(), O_RDWR | O_CLOEXEC)};
    if (!fd || ftruncate(fd.get(), kPageSize) != 0)
        throw std::system_error(errno, std::generic_category(), "frame page");
    void *at = mmap(nullptr, kPageSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
    if (at == MAP_FAILED)
        throw std::system_error(errno, std::generic_category(), "frame page");
    page_ = static_cast<FramePage *>(at);
    last_frame_ = board().counter() / kCountsPerFrame;
    publish(last_frame_);
    schedule();
}

void Frame::schedule()
{
    const uint64_t next = (board().counter() / kCountsPerFrame + 1) * kCountsPerFrame;
    board().loop().at(board().host_time(time_of_counter(next) + 1), [this] { tick(); });
}

void Frame::tick()
{
    const uint64_t now = board().counter() / kCountsPerFrame;
    if (running_ && now > last_frame_) {
        const uint64_t first = last_frame_ + 1;
        publish(now);
        wake(first, now);
    }
    if (now > last_frame_)
        last_frame_ = now;
    schedule();
}

// As the driver does it: sequence odd, fields, sequence even.
void Frame::publish(uint64_t frame)
{
    const uint64_t counter = frame * kCountsPerFrame;
    const int64_t monotonic = time_of_counter(counter);
    const int64_t real = monotonic + board().real_ns() - board().monotonic_ns();
    const uint64_t bcn = valid_ ? frame + static_cast<uint64_t>(offset_) : kNoFrameCount;

    std::atomic_ref sequence(page_->sequence);
    const uint32_t before = sequence.load(std::memory_order_relaxed) & ~1u;
    sequence.store(before + 1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    store_wide(page_->bcn_low, page_->bcn_high, bcn);
    store_time(page_->a_sec, page_->a_nsec, monotonic);
    store_wide(page_->counter_low, page_->counter_high, counter);
    store_time(page_->b_sec, page_->b_nsec, real);
    sequence.store(before + 2, std::memory_order_release);
}

void Frame::wake(uint64_t first, uint64_t last)
{
    const auto reached = [&](const Waiter &waiter) {
        if (!waiter.answer.is_waiting() || waiter.any)
            return true;
        const uint64_t at = first + static_cast<uint64_t>(offset_);
        return ((waiter.sfn - at) & kSfnMax) <= last - first;
    };
    const auto rest = std::stable_partition(waiters_.begin(), waiters_.end(), std::not_fn(reached));
    const std::vector<Waiter> ready(rest, waiters_.end());
    waiters_.erase(rest, waiters_.end());
    for (const Waiter &waiter : ready)
        waiter.answer.reply(0);
}

std::vector<IoctlForm> Frame::ioctls(const Node &) const
{
    return {{0, kFrameWaitNext, 0, 1}, {0, kFrameWaitFor, sizeof(uint32_t), 0}};
}

void Frame::ioctl(const Node &, uint32_t request, Bytes argument, Answer answer)
{
    if (request == kFrameWaitNext) {
        waiters_.push_back({answer, true, 0});
        return;
    }
    uint32_t sfn = 0;
    std::memcpy(&sfn, argument.data(), std::min(argument.size(), sizeof sfn));
    if (!valid_)
        answer.fail(EAGAIN);
    else if (sfn > kSfnMax)
        answer.fail(EINVAL);
    else
        waiters_.push_back({answer, false, sfn});
}

std::string Frame::show() const
{
    return std::to_string(last_frame_ + static_cast<uint64_t>(offset_)) + (valid_ ? "" : " invalid") +
           (running_ ? "\n" : " stopped\n");
}

ControlTable Frame::commands()
{
    using Row = ControlRow<Frame>;
    return {
        Row{"show", "print the frame count, and whether it is valid and moves", &Frame::show},
        Row{"stop|start", "let the radio frame stand still, or move on",
            [](Frame &frame, const Given &given) { frame.running_ = given.says("start"); }},
        Row{"invalid|valid", "take the frame count away, or give it back",
            [](Frame &frame, const Given &given) {
                frame.valid_ = given.says("valid");
                frame.publish(frame.last_frame_);
            }},
        Row{"bcn NUMBER", "set the frame count",
            [](Frame &frame, const Given &given) {
                frame.offset_ = static_cast<int64_t>(given.number<uint64_t>("NUMBER") - frame.last_frame_);
                frame.publish(frame.last_frame_);
            }},
    };
}

} // namespace vboard
