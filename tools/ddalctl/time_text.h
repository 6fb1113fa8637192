#pragma once

#include <cstdio>
#include <ctime>
#include <string>

namespace ddalctl {

// "12.345678900", seconds.
inline std::string time_text(const timespec &time)
{
    char text[40];
    snprintf(text, sizeof text, "%lld.%09ld", static_cast<long long>(time.tv_sec), time.tv_nsec);
    return text;
}

} // namespace ddalctl
