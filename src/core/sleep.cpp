#include "core/sleep.h"

#include <cerrno>
#include <ctime>

namespace ddal::core {

void sleep_us(uint64_t microseconds)
{
    constexpr uint64_t kMicrosecondsPerSecond = 1'000'000;
    timespec left{};
    left.tv_sec = static_cast<time_t>(microseconds / kMicrosecondsPerSecond);
    left.tv_nsec = static_cast<long>(microseconds % kMicrosecondsPerSecond * 1'000);
    while (nanosleep(&left, &left) != 0 && errno == EINTR)
        continue;
}

} // namespace ddal::core
