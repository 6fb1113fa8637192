#include "ddalctl/sfp_watch.h"

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <poll.h>

#include "ddalctl/failure.h"
#include "ddalctl/interrupt.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"
#include "ddalctl/sfp_plot.h"
#include "ddalctl/terminal.h"

namespace ddalctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kMonitoringType = 92; // in the identification memory
constexpr uint8_t kLegacyAddressing = 0x80;
constexpr uint8_t kDiagnosticsImplemented = 0x40;
constexpr uint8_t kInternallyCalibrated = 0x20;
constexpr uint8_t kExternallyCalibrated = 0x10;

struct Quantity {
    const char *name;
    const char *unit;
    uint32_t diag;
    uint16_t high; // bits of the alarm and of the warning flags
    uint16_t low;
};

constexpr Quantity kQuantities[] = {
    {"temperature", "C", DDAL_SFP_DIAG_TEMPERATURE, 0x8000, 0x4000},
    {"voltage", "V", DDAL_SFP_DIAG_VOLTAGE, 0x2000, 0x1000},
    {"tx-bias", "mA", DDAL_SFP_DIAG_TX_BIAS, 0x0800, 0x0400},
    {"tx-power", "mW", DDAL_SFP_DIAG_TX_POWER, 0x0200, 0x0100},
    {"rx-power", "mW", DDAL_SFP_DIAG_RX_POWER, 0x0080, 0x0040},
};

const char *flag_name(uint16_t flags, const Quantity &quantity)
{
    if (flags & quantity.high)
        return "high";
    return flags & quantity.low ? "low" : nullptr;
}

// The status lines of a cage, open for waiting.
class Lines {
public:
    explicit Lines(uint32_t cage)
    {
        for (size_t i = 0; i < std::size(kSfpLines); i++) {
            int32_t fd = -1;
            require(DDAL(ddal_sfp_status_event_open)(cage, kSfpLines[i].status, &fd));
            polled_[i] = {fd, POLLPRI | POLLERR, 0};
        }
    }
    ~Lines()
    {
        for (const pollfd &line : polled_) {
            if (line.fd >= 0)
                DDAL(ddal_sfp_status_event_close)(line.fd);
        }
    }
    Lines(const Lines &) = delete;
    Lines &operator=(const Lines &) = delete;

    // Returns at a change, after the time, or after a signal.
    void wait(int milliseconds)
    {
        if (poll(polled_, std::size(polled_), milliseconds) < 0 && errno != EINTR)
            throw failure_of(-errno);
    }

    // Reads line `i`. Returns whether it differs from the last reading.
    bool changed(size_t i, uint32_t &value)
    {
        require(DDAL(ddal_sfp_status_event_get)(polled_[i].fd, &value));
        const bool differs = !known_[i] || value != last_[i];
        known_[i] = true;
        last_[i] = value;
        return differs;
    }

    bool is_present() const { return last_[0] != 0; }

private:
    pollfd polled_[std::size(kSfpLines)] = {{-1, 0, 0}, {-1, 0, 0}, {-1, 0, 0}};
    uint32_t last_[std::size(kSfpLines)] = {};
    bool known_[std::size(kSfpLines)] = {};
};
static_assert(kSfpLines[0].status == DDAL_SFP_STATUS_PRESENCE);

// Counts the lines and gives each its time since the start.
class Log {
public:
    Log(uint32_t most, Report &report, SfpPlot &plot) : most_(most), report_(report), plot_(plot) {}

    bool full() const { return count_ >= most_; }
    SfpPlot &plot() const { return plot_; }
    double seconds() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }

    uint32_t count() const { return count_; }

    void add(const std::string &event, const std::string &text, const std::function<void(Report &)> &fill)
    {
        char stamp[32];
        snprintf(stamp, sizeof stamp, "%8.3f  ", seconds());
        if (plot_.draws())
            plot_.note(stamp + text);
        else
            report_.event(event, stamp + text, fill);
        count_++;
    }

private:
    uint32_t most_;
    uint32_t count_ = 0;
    Report &report_;
    SfpPlot &plot_;
    Clock::time_point start_ = Clock::now();
};

void log_lines(Lines &lines, Log &log)
{
    for (size_t i = 0; i < std::size(kSfpLines) && !log.full(); i++) {
        uint32_t value = 0;
        if (!lines.changed(i, value))
            continue;
        log.add("line", std::string(kSfpLines[i].name) + (value ? " yes" : " no"),
                [&](Report &values) { values.add_flag(kSfpLines[i].name, value != 0); });
    }
}

void log_measurements(uint32_t cage, Log &log)
{
    std::vector<SfpMeasurement> measured;
    try {
        if (log.full() || sfp_calibration(cage) == SfpCalibration::none)
            return;
        measured = sfp_measure(cage);
        if (log.plot().is_wanted())
            log.plot().add(log.seconds(), measured);
    } catch (const Failure &failure) {
        if (failure.status() != kNothingThere)
            throw;
        return; // pulled meanwhile; the presence line reports it
    }
    std::string text;
    for (const SfpMeasurement &one : measured) {
        text += (text.empty() ? "" : "  ") + std::string(one.name) + " " + one.value_text() + " " + one.unit;
        if (one.alarm)
            text += std::string(" ALARM ") + one.alarm;
        else if (one.warning)
            text += std::string(" warning ") + one.warning;
    }
    log.add("measurement", text, [&](Report &values) {
        for (const SfpMeasurement &one : measured)
            values.add(one.name, one.value, "");
    });
}

} // namespace

double sfp_plain(float value)
{
    char text[32];
    snprintf(text, sizeof text, "%.7g", static_cast<double>(value));
    return strtod(text, nullptr);
}

SfpCalibration sfp_calibration(uint32_t cage)
{
    uint8_t type = 0;
    require(DDAL(ddal_sfp_memory_read)(cage, DDAL_SFP_MEMORY_ID, kMonitoringType, &type, sizeof type));
    if ((type & kLegacyAddressing) || !(type & kDiagnosticsImplemented))
        return SfpCalibration::none;
    if (type & kInternallyCalibrated)
        return SfpCalibration::internal;
    return type & kExternallyCalibrated ? SfpCalibration::external : SfpCalibration::none;
}

std::string SfpMeasurement::value_text() const
{
    char text[32];
    snprintf(text, sizeof text, "%.*f", unit[0] == 'm' && unit[1] == 'W' ? 4 : 2, value);
    return text;
}

std::string SfpMeasurement::unit_text() const
{
    if (strcmp(unit, "mW") != 0 || value <= 0)
        return unit;
    char text[32];
    snprintf(text, sizeof text, "mW (%.2f dBm)", 10 * std::log10(value));
    return text;
}

std::vector<SfpMeasurement> sfp_measure(uint32_t cage)
{
    uint16_t alarms = 0;
    uint16_t warnings = 0;
    require(DDAL(ddal_sfp_get_alarm_warning_flags)(cage, &alarms, &warnings));
    std::vector<SfpMeasurement> measured;
    for (const Quantity &quantity : kQuantities) {
        uint32_t bits = 0;
        require(DDAL(ddal_sfp_diagnostic_get)(cage, quantity.diag, &bits));
        float value = 0;
        memcpy(&value, &bits, sizeof value);
        measured.push_back({quantity.name, quantity.unit, sfp_plain(value), flag_name(alarms, quantity),
                            flag_name(warnings, quantity)});
    }
    return measured;
}

void sfp_watch(uint32_t cage, uint32_t interval_ms, const Arguments &arguments, Report &report)
{
    if (arguments.given("--plot") && report.json())
        throw WrongUse("--plot: give it without --json, or --svg FILE");
    const StopOnSignal stop(arguments);
    report.lasts("end");
    Lines lines(cage);
    SfpPlot plot(cage, arguments.given("--plot") && is_terminal(),
                 arguments.given("--svg") ? arguments.text("--svg") : "");
    Log log(arguments.number_or("--count", UINT32_MAX), report, plot);
    Clock::time_point next = Clock::now();
    while (!log.full() && !StopOnSignal::stopped()) {
        log_lines(lines, log);
        if (Clock::now() >= next) {
            if (lines.is_present())
                log_measurements(cage, log);
            next += std::chrono::milliseconds(interval_ms);
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now()).count();
        lines.wait(left > 0 ? static_cast<int>(left) + 1 : 0);
    }
    plot.write();
    stop.require_all(arguments, log.count(), "lines");
}

} // namespace ddalctl
