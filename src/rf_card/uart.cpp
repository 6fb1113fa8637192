#include "rf_card/uart.h"

#include <cerrno>
#include <ctime>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <ddal/bsl.h>

#include "core/sleep.h"
#include "core/transfer.h"
#include "core/unique_fd.h"
#include "rf_card/hold.h"

namespace ddal::rf_card {

namespace {

constexpr uint64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr uint64_t kMillisecondsPerSecond = 1'000;

struct LineSpeed {
    uint32_t baud;
    speed_t speed;
};

constexpr LineSpeed kLineSpeeds[] = {
    {1200, B1200},   {2400, B2400},   {4800, B4800},   {9600, B9600},
    {19200, B19200}, {38400, B38400}, {57600, B57600}, {115200, B115200},
};

const LineSpeed *find_speed(uint32_t baud)
{
    for (const LineSpeed &entry : kLineSpeeds) {
        if (entry.baud == baud)
            return &entry;
    }
    return nullptr;
}

LinkTiming process_timing;

} // namespace

bool UartStream::wait_readable(int timeout_ms)
{
    SystemClock &clock = system_clock();
    const uint64_t ticks_per_ms = clock.frequency() / kMillisecondsPerSecond;
    const uint64_t deadline = clock.ticks() + static_cast<uint64_t>(timeout_ms) * ticks_per_ms;
    pollfd waiting{fd_, POLLIN, 0};

    int n = poll(&waiting, 1, timeout_ms);
    // A signal does not count as silence: waits for the remaining time.
    while (n < 0 && errno == EINTR) {
        const uint64_t now = clock.ticks();
        const uint64_t left_ms = now < deadline ? (deadline - now) / ticks_per_ms : 0;
        n = poll(&waiting, 1, static_cast<int>(left_ms));
    }
    return n > 0;
}

ssize_t UartStream::read_byte(uint8_t *byte)
{
    return TEMP_FAILURE_RETRY(read(fd_, byte, 1));
}

ssize_t UartStream::write_all(const uint8_t *data, uint32_t length)
{
    return ddal_common_write_all(fd_, data, length);
}

void UartStream::discard_output()
{
    tcflush(fd_, TCOFLUSH);
}

void UartStream::discard_input()
{
    tcflush(fd_, TCIFLUSH);
}

uint64_t SystemClock::ticks()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * kNanosecondsPerSecond + static_cast<uint64_t>(now.tv_nsec);
}

uint64_t SystemClock::frequency()
{
    return kNanosecondsPerSecond;
}

void SystemClock::sleep_us(uint64_t microseconds)
{
    core::sleep_us(microseconds);
}

SystemClock &system_clock()
{
    static SystemClock clock;
    return clock;
}

UartLink::UartLink(int fd, int verbose, Progress *progress)
    : stream_(fd), link_{stream_, system_clock(), process_timing, verbose, progress}
{
}

} // namespace ddal::rf_card

// kept: each step has a different errno, and every failure closes the descriptor
int bsl_set_uart_speed(int fd, uint32_t baud)
{
    ddal::core::UniqueFd uart{fd};
    const ddal::rf_card::LineSpeed *line = ddal::rf_card::find_speed(baud);
    if (!line)
        return -ETIMEDOUT;
    if (const int held = ddal::rf_card::hold_uart(fd); held != 0)
        return held;

    termios settings{};
    if (tcgetattr(fd, &settings) != 0)
        return -ENETDOWN;
    cfmakeraw(&settings);
    if (cfsetispeed(&settings, line->speed) != 0)
        return -ENETUNREACH;
    if (cfsetospeed(&settings, line->speed) != 0)
        return -ENETRESET;
    settings.c_cflag &= ~static_cast<tcflag_t>(CSIZE | CSTOPB | PARENB | PARODD | CLOCAL);
    settings.c_cflag |= CS8 | PARENB | CLOCAL;
    if (tcsetattr(fd, TCSANOW, &settings) != 0)
        return -ECONNABORTED;
    tcflush(fd, TCIOFLUSH);
    return uart.release();
}
