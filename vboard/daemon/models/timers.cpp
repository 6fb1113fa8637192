#include "daemon/models/timers.h"

#include <cerrno>
#include <cstring>
#include <linux/pps.h>

#include "daemon/board.h"
#include "platform/emtimer_driver.h"

namespace vboard {

using namespace ddal::platform;

namespace {

constexpr uint32_t kMostTimers = 16;
constexpr int64_t kSecond = 1'000'000'000;

template <typename Record>
bool take(const Bytes &argument, Record &record)
{
    if (argument.size() != sizeof record)
        return false;
    std::memcpy(&record, argument.data(), sizeof record);
    return true;
}

} // namespace

std::vector<IoctlForm> EventTimers::ioctls(const Node &) const
{
    return {{0, kEmtimerConfig, sizeof(EmtimerConfigRequest), 0},
            {0, kEmtimerCreate, sizeof(EmtimerCreateRequest), 0},
            {0, kEmtimerSettime, sizeof(EmtimerSettimeRequest), 0},
            {0, kEmtimerDestroy, sizeof(EmtimerDestroyRequest), 0}};
}

void EventTimers::ioctl(const Node &, uint32_t request, Bytes argument, Answer answer)
{
    EmtimerConfigRequest config;
    EmtimerCreateRequest create;
    EmtimerSettimeRequest settime;
    EmtimerDestroyRequest destroy;
    if (request == kEmtimerConfig && take(argument, config)) {
        configuration_.assign(config.a, config.a + 6);
        answer.reply(0);
    } else if (request == kEmtimerCreate && take(argument, create)) {
        if (configuration_.empty() || timers_.size() >= kMostTimers) {
            answer.fail(configuration_.empty() ? EINVAL : ENOSPC);
            return;
        }
        create.id = next_++;
        Timer timer{{}, create.a, create.b, board().monotonic_ns()};
        std::memcpy(timer.setting, create.setting, sizeof timer.setting);
        timers_[create.id] = timer;
        answer.reply_with(0, create);
    } else if (request == kEmtimerSettime && take(argument, settime)) {
        const auto found = timers_.find(settime.id);
        if (found == timers_.end()) {
            answer.fail(EINVAL);
            return;
        }
        std::memcpy(found->second.setting, settime.setting, sizeof settime.setting);
        found->second.armed_ns = board().monotonic_ns();
        answer.reply_with(0, settime);
    } else if (request == kEmtimerDestroy && take(argument, destroy)) {
        const auto found = timers_.find(destroy.id);
        if (found == timers_.end()) {
            answer.fail(EINVAL);
            return;
        }
        destroy.out1 = found->second.a;
        destroy.out2 = found->second.b;
        timers_.erase(found);
        answer.reply_with(0, destroy);
    } else {
        answer.fail(EFAULT);
    }
}

ControlTable EventTimers::commands()
{
    using Row = ControlRow<EventTimers>;
    return {Row{"show", "print the configuration and every timer", &EventTimers::show},
            Row{"clear", "remove the configuration and every timer", &EventTimers::clear}};
}

void EventTimers::clear()
{
    configuration_.clear();
    timers_.clear();
}

std::string EventTimers::show() const
{
    std::string list = "config";
    for (const uint32_t word : configuration_)
        list += " " + std::to_string(word);
    list += "\n";
    for (const auto &[id, timer] : timers_) {
        list += std::to_string(id) + " a=" + std::to_string(timer.a) + " b=" + std::to_string(timer.b) + " setting";
        for (const uint32_t word : timer.setting)
            list += " " + std::to_string(word);
        list += "\n";
    }
    return list;
}

namespace {

// The request numbers encode the size of a pointer, so programs of both word sizes are served.
constexpr uint32_t pps_request(uint32_t direction, uint32_t number, uint32_t pointer)
{
    return direction << 30 | pointer << 16 | 'p' << 8 | number;
}

enum class Pps { kGetParams, kSetParams, kGetCap, kFetch };
struct PpsRequest {
    Pps what;
    uint32_t direction;
    uint32_t number;
    uint32_t size;
};
constexpr PpsRequest kPpsRequests[] = {{Pps::kGetParams, 2, 0xA1, sizeof(pps_kparams)},
                                       {Pps::kSetParams, 1, 0xA2, sizeof(pps_kparams)},
                                       {Pps::kGetCap, 2, 0xA3, sizeof(int32_t)},
                                       {Pps::kFetch, 3, 0xA4, sizeof(pps_fdata)}};
static_assert(pps_request(3, 0xA4, sizeof(void *)) == static_cast<uint32_t>(PPS_FETCH));

} // namespace

std::vector<IoctlForm> PulsePerSecond::ioctls(const Node &) const
{
    std::vector<IoctlForm> forms;
    for (const PpsRequest &r : kPpsRequests)
        for (const uint32_t pointer : {4u, 8u})
            forms.push_back({0, pps_request(r.direction, r.number, pointer), r.size, 0});
    return forms;
}

void PulsePerSecond::start()
{
    schedule();
}

void PulsePerSecond::schedule()
{
    const int64_t left = kSecond - board().real_ns() % kSecond;
    board().after(std::chrono::nanoseconds{left}, [this] { pulse(); });
}

void PulsePerSecond::pulse()
{
    if (running_) {
        ++sequence_;
        assert_ns_ = (board().real_ns() + kSecond / 2) / kSecond * kSecond;
        for (auto &[answer, argument] : std::exchange(waiters_, {}))
            fetch(argument, answer);
    }
    schedule();
}

void PulsePerSecond::fetch(const Bytes &argument, const Answer &answer)
{
    pps_fdata data;
    std::memcpy(&data, argument.data(), sizeof data);
    data.info.assert_sequence = sequence_;
    data.info.assert_tu.sec = assert_ns_ / kSecond;
    data.info.assert_tu.nsec = static_cast<int32_t>(assert_ns_ % kSecond);
    data.info.current_mode = mode_;
    answer.reply_with(0, data);
}

void PulsePerSecond::ioctl(const Node &, uint32_t request, Bytes argument, Answer answer)
{
    const PpsRequest *known = nullptr;
    for (const PpsRequest &r : kPpsRequests)
        if ((request & 0xff) == r.number)
            known = &r;
    if (!known || argument.size() != known->size) {
        answer.fail(ENOTTY);
        return;
    }
    pps_kparams params{};
    switch (known->what) {
    case Pps::kGetParams:
        params.api_version = PPS_API_VERS;
        params.mode = mode_;
        answer.reply_with(0, params);
        return;
    case Pps::kSetParams:
        std::memcpy(&params, argument.data(), sizeof params);
        if (!settable_) {
            answer.fail(EPERM);
            return;
        }
        mode_ = params.mode;
        answer.reply(0);
        return;
    case Pps::kGetCap: answer.reply_with(0, int32_t{PPS_CAPTUREASSERT | PPS_CANWAIT}); return;
    case Pps::kFetch: break;
    }
    pps_fdata data;
    std::memcpy(&data, argument.data(), sizeof data);
    waiters_.emplace_back(answer, argument);
    if (data.timeout.flags & PPS_TIME_INVALID)
        return;
    const auto span = std::chrono::seconds{data.timeout.sec} + std::chrono::nanoseconds{data.timeout.nsec};
    board().after(span, [answer] { answer.fail(ETIMEDOUT); });
}

ControlTable PulsePerSecond::commands()
{
    using Row = ControlRow<PulsePerSecond>;
    return {
        Row{"stop|start", "let the pulses stop, or come again",
            [](PulsePerSecond &pps, const Given &given) { pps.running_ = given.says("start"); }},
        Row{"lock|unlock", "refuse changes of the mode, or take them again",
            [](PulsePerSecond &pps, const Given &given) { pps.settable_ = given.says("unlock"); }},
        Row{"mode", "print the mode", [](const PulsePerSecond &pps) { return std::to_string(pps.mode_) + "\n"; }},
    };
}

} // namespace vboard
