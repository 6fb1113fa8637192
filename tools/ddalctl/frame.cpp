// ddalctl frame: the radio frame.
#include <ddal/sfn.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string>

#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/interrupt.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"
#include "ddalctl/time_text.h"
#include "platform/frame_driver.h"

namespace ddalctl {

namespace {

constexpr uint32_t kSfnCount = 4096;
constexpr uint32_t kFramesPerLine = 100; // one second
constexpr double kOffsetUnitsPerMicrosecond = 1228.8;

std::string fixed(double value, int digits)
{
    char text[32];
    snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

void show(const Arguments &, Report &report)
{
    uint64_t bcn = 0;
    uint32_t offset = 0;
    timespec start = {};
    require(DDAL(ddal_sfn_get_bcn)(&bcn, &offset, &start));
    report.add("bcn", bcn);
    report.add("sfn", bcn % kSfnCount);
    report.add("offset", static_cast<uint64_t>(offset),
               fixed(offset / kOffsetUnitsPerMicrosecond, 1) + " us into the frame");
    add_time(report, "start", start);
}

// Counts the frames seen and the frames missed.
struct Count {
    uint32_t seen = 0;
    uint32_t missed = 0;
    uint32_t last = 0;

    void add(uint32_t sfn)
    {
        if (seen > 0 && sfn == last)
            return; // a second wake-up in one frame
        if (seen++ > 0)
            missed += (sfn - last + kSfnCount - 1) % kSfnCount;
        last = sfn;
    }

    void report(Report &to) const
    {
        to.add("frames", seen);
        to.add("missed", missed);
        to.add("sfn", last);
    }
};

double seconds_since(const timespec &start)
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec - start.tv_sec) + static_cast<double>(now.tv_nsec - start.tv_nsec) / 1e9;
}

void watch(const Arguments &arguments, Report &report)
{
    const uint32_t frames = arguments.number_or("--count", UINT32_MAX);
    const StopOnSignal stop(arguments);
    report.lasts("end");
    Count count;
    timespec start = {};
    while (count.seen < frames && !StopOnSignal::stopped()) {
        uint32_t sfn = 0;
        const int result = DDAL(ddal_sfn_wait_next)(&sfn, nullptr, 0);
        if (result == -EINTR)
            continue;
        require(result);
        if (count.seen == 0)
            clock_gettime(CLOCK_MONOTONIC, &start);
        count.add(sfn);
        if (count.seen % kFramesPerLine == 0)
            report.event("frames",
                         "sfn " + std::to_string(sfn) + "  frames " + std::to_string(count.seen) + "  missed " +
                             std::to_string(count.missed),
                         [&](Report &values) { count.report(values); });
    }
    stop.require_all(arguments, count.seen, "frames");
    const double seconds = count.seen > 0 ? seconds_since(start) : 0;
    count.report(report);
    report.add("milliseconds", static_cast<uint64_t>(seconds * 1e3));
}

void wait(const Arguments &arguments, Report &report)
{
    const StopOnSignal stop(arguments);
    report.lasts("frame");
    uint32_t sfn = arguments.number_or("SFN", 0);
    timespec start = {};
    const int result =
        arguments.given("SFN") ? DDAL(ddal_sfn_wait_for)(&sfn, &start) : DDAL(ddal_sfn_wait_next)(&sfn, &start, 0);
    if (result == -EINTR && stop.timed_out())
        throw Failure(-ETIMEDOUT, kOperationFailed,
                      "no such frame in " + std::to_string(arguments.number(kTimeout.name)) + " ms",
                      ddal::platform::kFrameNode);
    require(result);
    report.add("sfn", sfn);
    add_time(report, "start", start);
}

} // namespace

Family frame_family()
{
    return {"frame",
            "the radio frame",
            {
                {"show", "show frame count, frame number and time within the frame", {}, show},
                {"watch",
                 "follow the frames, one line a second, until interrupted",
                 {{"--count", Kind::number, "stop after COUNT frames", true, UINT32_MAX, 1}, kTimeout},
                 watch},
                {"wait",
                 "wait for the next frame, or for a given one",
                 {{"SFN", Kind::number, "frame number to wait for, 0 to 4095", true, kSfnCount - 1}, kTimeout},
                 wait},
            }};
}

} // namespace ddalctl
