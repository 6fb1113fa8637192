#include "daemon/models/slow_measurement.h"

#include <algorithm>
#include <cerrno>

#include "daemon/board.h"
#include "daemon/models/registers.h"
#include "logic/fpga_driver.h"
#include "logic/rf_fpga_driver.h"

namespace vboard {

using namespace ddal::logic;

namespace {

constexpr std::chrono::milliseconds kPeriodOfC5{100}; // it takes no setting
constexpr uint32_t kSecondBlockMark = 0x80000000;

} // namespace

WordRegisters &SlowMeasurement::fpga() const
{
    auto *registers = dynamic_cast<WordRegisters *>(board().model("fpga"));
    if (!registers)
        throw std::runtime_error("the slow measurement needs the model \"fpga\"");
    return *registers;
}

bool SlowMeasurement::is_c5() const
{
    return (fpga().get(kFpgaVersion) & kC5Version) == kC5Version;
}

std::chrono::milliseconds SlowMeasurement::period() const
{
    const uint32_t units = std::clamp(fpga().get(kSlowMeasPeriod), 1u, kSlowMeasPeriodMax / kSlowMeasPeriodUnit);
    return is_c5() ? kPeriodOfC5 : std::chrono::milliseconds{units * kSlowMeasPeriodUnit};
}

void SlowMeasurement::start()
{
    fpga().on_write(kSlowMeasPeriod, [this](uint32_t) { schedule(); });
    schedule();
}

// From now on: a new period begins when it is set.
void SlowMeasurement::schedule()
{
    board().loop().cancel(timer_);
    timer_ = board().after(period(), [this] {
        if (running_)
            deliver();
        schedule();
    });
}

void SlowMeasurement::deliver()
{
    const uint32_t index = next_index_;
    next_index_ = (next_index_ + 1) % kSlowMeasBuffers;
    fill(index);
    announce(index);
}

// Words that tell report, block and place apart.
void SlowMeasurement::fill(uint32_t index)
{
    const uint32_t second = (is_c5() ? kSlowMeasSecondBlockC5 : kSlowMeasSecondBlock)[index];
    ++count_;
    for (uint32_t i = 0; i < kSlowMeasBlock; i += 4) {
        fpga().set(kSlowMeasFirstBlock[index] + i, count_ << 8 | i);
        fpga().set(second + i, kSecondBlockMark | count_ << 8 | i);
    }
}

void SlowMeasurement::announce(uint32_t index)
{
    for (const Answer &waiter : std::exchange(waiters_, {}))
        waiter.reply_with(0, index);
}

std::vector<IoctlForm> SlowMeasurement::ioctls(const Node &) const
{
    return {{0, kSlowMeasWait, sizeof(uint32_t), 0}};
}

void SlowMeasurement::ioctl(const Node &, uint32_t, Bytes, Answer answer)
{
    if (gone_) {
        answer.fail(ENODEV);
        return;
    }
    std::erase_if(waiters_, [](const Answer &waiter) { return !waiter.is_waiting(); });
    waiters_.push_back(answer);
}

std::string SlowMeasurement::show() const
{
    return "reports " + std::to_string(count_) + " waiting " + std::to_string(waiters_.size()) + " period " +
           std::to_string(period().count()) + " ms\n";
}

void SlowMeasurement::hang_up()
{
    gone_ = true;
    for (const Answer &waiter : std::exchange(waiters_, {}))
        waiter.fail(ENODEV);
}

ControlTable SlowMeasurement::commands()
{
    using Row = ControlRow<SlowMeasurement>;
    return {
        Row{"show", "print the number of reports, of waiting programs, and the period", &SlowMeasurement::show},
        Row{"stop|start", "send no reports by itself, or go on with them",
            [](SlowMeasurement &reports, const Given &given) {
                reports.running_ = given.says("start");
                reports.gone_ = false;
            }},
        Row{"report [INDEX]", "send a report now; with an index only announce that buffer, whether or not it exists",
            [](SlowMeasurement &reports, const Given &given) {
                if (given.has("INDEX"))
                    reports.announce(given.number("INDEX"));
                else
                    reports.deliver();
            }},
        Row{"hang-up", "take the device away", &SlowMeasurement::hang_up},
    };
}

} // namespace vboard
