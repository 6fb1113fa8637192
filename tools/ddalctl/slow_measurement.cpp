// ddalctl slow-measurement: the periodic report of the main FPGA.
#include <ddal/rf_fpga.h>

#include <cstdio>
#include <string>

#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/interrupt.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

constexpr size_t kReportSize = 64;
constexpr size_t kBlockSize = 32;
constexpr uint32_t kShortestPeriod = 100;
constexpr uint32_t kLongestPeriod = 1000;

// The report, open for the time of a command.
class SlowMeasurement {
public:
    explicit SlowMeasurement(uint32_t period) { require(DDAL(ddal_rf_fpga_slow_meas_report_open)(&report_, period)); }
    ~SlowMeasurement() { DDAL(ddal_rf_fpga_slow_meas_report_close)(report_); }
    SlowMeasurement(const SlowMeasurement &) = delete;
    SlowMeasurement &operator=(const SlowMeasurement &) = delete;

    // Returns false when the user stops the command first.
    bool wait(uint8_t (&bytes)[kReportSize])
    {
        const int result = DDAL(ddal_rf_fpga_slow_meas_report_wait)(report_, bytes);
        if (result < 0 && StopOnSignal::stopped())
            return false;
        require(result, kBlockSize);
        return true;
    }

private:
    ddal_rf_fpga_slow_meas *report_ = nullptr;
};

std::string digits_of(const uint8_t *bytes)
{
    std::string digits;
    for (size_t i = 0; i < kBlockSize; i++)
        digits += hex(bytes[i], 2).substr(2);
    return digits;
}

void watch(const Arguments &arguments, Report &report)
{
    const uint32_t reports = arguments.number_or("--count", UINT32_MAX);
    const StopOnSignal stop(arguments);
    SlowMeasurement measurement(arguments.number_or("--period", kLongestPeriod));
    report.lasts("end");
    uint32_t seen = 0;
    for (; seen < reports; seen++) {
        uint8_t bytes[kReportSize] = {};
        if (!measurement.wait(bytes))
            break;
        const std::string first = digits_of(bytes);
        const std::string second = digits_of(bytes + kBlockSize);
        report.event("report", first + " " + second, [&](Report &values) {
            values.add("first", first);
            values.add("second", second);
        });
    }
    stop.require_all(arguments, seen, "reports");
}

void set_period(const Arguments &arguments, Report &)
{
    const SlowMeasurement measurement(arguments.number("PERIOD"));
}

} // namespace

Family slow_measurement_family()
{
    return {"slow-measurement",
            "the slow measurement report",
            {
                {"watch",
                 "print the two blocks of each report as it arrives, until interrupted",
                 {{"--period", Kind::number, "ms, 100 to 1000 in steps of 100 (default 1000)", true, kLongestPeriod,
                   kShortestPeriod, kShortestPeriod},
                  {"--count", Kind::number, "stop after COUNT reports", true, UINT32_MAX, 1},
                  kTimeout},
                 watch},
                {"set-period",
                 "set the period for all readers of the report",
                 {{"PERIOD", Kind::number, "ms, 100 to 1000 in steps of 100", false, kLongestPeriod, kShortestPeriod,
                   kShortestPeriod}},
                 set_period},
            }};
}

} // namespace ddalctl
