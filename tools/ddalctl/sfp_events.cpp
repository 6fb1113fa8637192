// Status lines of the SFP cages as sources of "ddalctl events".
#include <poll.h>

#include <ddal/sfp.h>

#include "ddalctl/event_source.h"
#include "ddalctl/failure.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

struct Line {
    const char *name;
    uint32_t cage;
    uint32_t status;
    const char *when_clear;
    const char *when_set;
};

constexpr Line kLines[] = {
    {"sfp1-presence", DDAL_SFP_1, DDAL_SFP_STATUS_PRESENCE, "pulled", "plugged"},
    {"sfp1-rx-los", DDAL_SFP_1, DDAL_SFP_STATUS_RX_LOS, "signal is back", "signal lost"},
    {"sfp1-tx-fault", DDAL_SFP_1, DDAL_SFP_STATUS_TX_FAULT, "fault is gone", "fault"},
    {"sfp2-presence", DDAL_SFP_2, DDAL_SFP_STATUS_PRESENCE, "pulled", "plugged"},
    {"sfp2-rx-los", DDAL_SFP_2, DDAL_SFP_STATUS_RX_LOS, "signal is back", "signal lost"},
    {"sfp2-tx-fault", DDAL_SFP_2, DDAL_SFP_STATUS_TX_FAULT, "fault is gone", "fault"},
};

// An open status line; the first reading makes the descriptor wait for a change.
class OpenLine {
public:
    explicit OpenLine(const Line &line) { require(DDAL(ddal_sfp_status_event_open)(line.cage, line.status, &fd_)); }
    ~OpenLine() { DDAL(ddal_sfp_status_event_close)(fd_); }
    OpenLine(const OpenLine &) = delete;
    OpenLine &operator=(const OpenLine &) = delete;

    int fd() const { return fd_; }
    bool read() const
    {
        uint32_t value = 0;
        require(DDAL(ddal_sfp_status_event_get)(fd_, &value));
        return value != 0;
    }

private:
    int32_t fd_ = -1;
};

class LineSource : public EventSource {
public:
    explicit LineSource(const Line &line) : line_(line), open_(line) { open_.read(); }

    std::string name() const override { return line_.name; }
    int descriptor() const override { return open_.fd(); }
    short condition() const override { return POLLPRI; }
    Event take() override
    {
        const bool value = open_.read();
        return {value ? line_.when_set : line_.when_clear, [value](Report &event) { event.add_flag("value", value); }};
    }

private:
    const Line &line_;
    OpenLine open_;
};

template <size_t index>
EventKind kind()
{
    return {kLines[index].name, "status line of an SFP cage", false,
            [](uint32_t) -> std::unique_ptr<EventSource> { return std::make_unique<LineSource>(kLines[index]); }};
}

} // namespace

std::vector<EventKind> sfp_events()
{
    return {kind<0>(), kind<1>(), kind<2>(), kind<3>(), kind<4>(), kind<5>()};
}

} // namespace ddalctl
