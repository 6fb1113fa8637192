// ddalctl power-meter: the FPGA's RF power meter.
#include <ddal/fpga.h>

#include <iterator>
#include <poll.h>
#include <string>
#include <vector>

#include "ddalctl/event_source.h"
#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/interrupt.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

constexpr size_t kRecordWords = 11; // the fields of the first word, then the other words
constexpr size_t kFields = 3;

void show(const Arguments &, Report &report)
{
    uint32_t loops = 0;
    uint32_t range = 0;
    require(DDAL(ddal_fpga_rf_pwr_loop_cnt_get)(&loops));
    require(DDAL(ddal_fpga_rf_pwr_accum_range_get)(&range));
    report.add("loops", loops);
    report.add("range", range);
}

void set_loops(const Arguments &arguments, Report &)
{
    require(DDAL(ddal_fpga_rf_pwr_loop_cnt_set)(arguments.number("COUNT")));
}

void set_range(const Arguments &arguments, Report &)
{
    require(DDAL(ddal_fpga_rf_pwr_accum_range_set)(arguments.number("RANGE")));
}

// The record channel, open for the time of a command.
class Channel {
public:
    Channel()
    {
        require(DDAL(ddal_fpga_rf_pwr_open)(&fd_));
        fail_instead_of_waiting(fd_);
    }
    ~Channel() { DDAL(ddal_fpga_rf_pwr_close)(fd_); }
    Channel(const Channel &) = delete;
    Channel &operator=(const Channel &) = delete;

    // Returns false when a signal arrives first. The library's wait continues after a signal, so wait here.
    bool wait() const
    {
        pollfd channel = {fd_, POLLIN, 0};
        return poll(&channel, 1, -1) == 1 && !StopOnSignal::stopped();
    }
    void read(uint32_t words[kRecordWords]) const { require_record(DDAL(ddal_fpga_rf_pwr_wait)(fd_, words), fd_); }

private:
    int fd_ = -1;
};

void watch(const Arguments &arguments, Report &report)
{
    const uint32_t records = arguments.number_or("--count", UINT32_MAX);
    const StopOnSignal stop(arguments);
    const Channel channel;
    report.lasts("end");
    uint32_t seen = 0;
    for (; seen < records && channel.wait(); seen++) {
        uint32_t words[kRecordWords];
        channel.read(words);
        std::string line = "fields";
        for (size_t i = 0; i < kRecordWords; i++)
            line += (i == kFields ? "  words " : " ") + (i < kFields ? std::to_string(words[i]) : hex(words[i], 8));
        report.event("record", line, [&](Report &values) {
            values.add_to_document("fields", std::vector<uint64_t>(words, words + kFields));
            values.add_to_document("words", std::vector<uint64_t>(words + kFields, std::end(words)));
        });
    }
    stop.require_all(arguments, seen, "records");
}

} // namespace

Family power_meter_family()
{
    return {"power-meter",
            "the RF power meter of the FPGA",
            {
                {"show", "show the settings", {}, show},
                {"set-loops",
                 "set the number of measurement loops",
                 {{"COUNT", Kind::number, "number of loops"}},
                 set_loops},
                {"set-range", "set the accumulator range", {{"RANGE", Kind::number, "accumulator range"}}, set_range},
                {"watch",
                 "print the measurement records as they arrive, until interrupted",
                 {{"--count", Kind::number, "stop after COUNT records", true, UINT32_MAX, 1}, kTimeout},
                 watch},
            }};
}

} // namespace ddalctl
