// ddalctl alarm: the alarms of the main FPGA's driver.
#include <ddal/rp3.h>

#include <cerrno>
#include <poll.h>
#include <string>
#include <unistd.h>

#include "ddalctl/event_source.h"
#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/interrupt.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

// The lambdas look up the library's operations at the call, so that a table can name them without a board.
struct AlarmKind {
    const char *name;
    int (*open)(int *fd);
    int (*close)(int fd);
};
constexpr AlarmKind kAlarms[] = {
    {"rp3", [](int *fd) { return DDAL(ddal_rp3_alarm_event_open)(fd); },
     [](int fd) { return DDAL(ddal_rp3_alarm_event_close)(fd); }},
    {"refab", [](int *fd) { return DDAL(ddal_refab_alarm_event_open)(fd); },
     [](int fd) { return DDAL(ddal_refab_alarm_event_close)(fd); }},
};

std::vector<std::string> names_of_alarms(const std::vector<std::string> &)
{
    std::vector<std::string> names;
    for (const AlarmKind &alarm : kAlarms)
        names.emplace_back(alarm.name);
    return names;
}

const AlarmKind &alarm_named(const std::string &name)
{
    for (const AlarmKind &alarm : kAlarms) {
        if (name == alarm.name)
            return alarm;
    }
    throw WrongUse("ALARM: \"" + name + "\" is not one of rp3, refab");
}

class AlarmChannel : public EventSource {
public:
    explicit AlarmChannel(const AlarmKind &kind) : kind_(kind)
    {
        require(kind.open(&fd_));
        text(); // the state before the first wait is not an event
    }
    ~AlarmChannel() override { kind_.close(fd_); }

    std::string name() const override { return std::string("alarm ") + kind_.name; }
    int descriptor() const override { return fd_; }
    short condition() const override { return POLLPRI; }
    Event take() override
    {
        const std::string state = text();
        return {state, [state](Report &event) { add_state(event, state); }};
    }

    // Adds the number that the attribute holds.
    static void add_state(Report &report, const std::string &text)
    {
        const bool is_number = !text.empty() && text.size() < 10 && text.find_first_not_of("0123456789") == text.npos;
        report.add("state", is_number ? Report::Value(uint64_t{std::stoul(text)}) : Report::Value(text), text);
    }

    std::string text() const
    {
        char text[64];
        const ssize_t n = pread(fd_, text, sizeof text, 0);
        if (n < 0)
            throw failure_of(-errno);
        std::string state(text, static_cast<size_t>(n));
        while (!state.empty() && state.back() == '\n')
            state.pop_back();
        return state;
    }

private:
    const AlarmKind &kind_;
    int fd_ = -1;
};

void show(const Arguments &arguments, Report &report)
{
    AlarmChannel::add_state(report, AlarmChannel(alarm_named(arguments.text("ALARM"))).text());
}

void watch(const Arguments &arguments, Report &report)
{
    const uint32_t changes = arguments.number_or("--count", UINT32_MAX);
    const StopOnSignal stop(arguments);
    AlarmChannel channel(alarm_named(arguments.text("ALARM")));
    report.lasts("end");
    const auto print = [&](const Event &event) { report.event("alarm", event.text, event.fill); };
    print(channel.take());
    uint32_t seen = 0;
    for (; seen < changes && next_event(channel); seen++)
        print(channel.take());
    stop.require_all(arguments, seen, "changes");
}

void mask(const Arguments &, Report &report)
{
    uint32_t value = 0;
    require(DDAL(ddal_get_rp3_alarm_mask)(&value));
    report.add_hex("mask", value);
}

void set_mask(const Arguments &arguments, Report &)
{
    require(DDAL(ddal_set_rp3_alarm_mask)(arguments.number("MASK")));
}

} // namespace

std::vector<EventKind> alarm_events()
{
    return {
        {"rp3-alarm", "RP3 link alarm", false,
         [](uint32_t) -> std::unique_ptr<EventSource> { return std::make_unique<AlarmChannel>(kAlarms[0]); }},
        {"refab-alarm", "reference alarm", false,
         [](uint32_t) -> std::unique_ptr<EventSource> { return std::make_unique<AlarmChannel>(kAlarms[1]); }},
    };
}

Family alarm_family()
{
    const Argument alarm = text_of("ALARM", "rp3 or refab", names_of_alarms);
    return {"alarm",
            "the RP3 link alarm and the reference alarm",
            {
                {"show",
                 "show the state of an alarm (enables the rp3 alarm during the call, then disables it)",
                 {alarm},
                 show},
                {"watch",
                 "print each change of an alarm, until interrupted (disables the rp3 alarm at the end)",
                 {alarm, {"--count", Kind::number, "stop after COUNT changes", true, UINT32_MAX, 1}, kTimeout},
                 watch},
                {"mask", "show the RP3 alarm mask", {}, mask},
                {"set-mask", "set the RP3 alarm mask", {{"MASK", Kind::number, "new mask; 0 disables"}}, set_mask},
            }};
}

} // namespace ddalctl
