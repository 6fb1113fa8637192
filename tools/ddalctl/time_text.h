#pragma once

#include <cstdio>
#include <ctime>
#include <string>

#include "ddalctl/report.h"

namespace ddalctl {

// "12.345678900", seconds.
inline std::string time_text(const timespec &time)
{
    char text[40];
    snprintf(text, sizeof text, "%lld.%09ld", static_cast<long long>(time.tv_sec), time.tv_nsec);
    return text;
}

// Adds a time: nanoseconds in the document, seconds for people.
inline void add_time(Report &report, const std::string &name, const timespec &time)
{
    const uint64_t nanoseconds =
        static_cast<uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time.tv_nsec);
    report.add(name, nanoseconds, time_text(time));
}

} // namespace ddalctl
