// The unit's run-time clock, requested from the uptime daemon.
#include <ddal/pm.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include "core/log.h"
#include "core/unique_fd.h"
#include "platform/clock_devices.h"

using ddal::core::UniqueFd;
using namespace ddal::platform;

namespace {

constexpr timeval kAnswerTimeout{.tv_sec = 30, .tv_usec = 0};
constexpr uint64_t kMillisecondsPerDay = 86'400'000;

// Passes the full address size: the padding is part of an abstract name.
bool connect_to_daemon(int fd)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path + 1, kUptimeSocketName, sizeof kUptimeSocketName - 1);
    return TEMP_FAILURE_RETRY(connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address)) == 0;
}

int64_t now_ms()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// The socket's time limit begins anew with each call, so after a signal poll waits for the time that is left.
ssize_t receive_answer(int fd, void *answer, size_t size)
{
    const int64_t end = now_ms() + kAnswerTimeout.tv_sec * 1000;
    ssize_t n = recv(fd, answer, size, 0);
    while (n < 0 && errno == EINTR) {
        pollfd waiting{fd, POLLIN, 0};
        const int64_t left = end - now_ms();
        if (poll(&waiting, 1, left > 0 ? static_cast<int>(left) : 0) >= 0 || errno != EINTR)
            n = recv(fd, answer, size, MSG_DONTWAIT);
    }
    return n;
}

} // namespace

int ddal_pm_get_runtimeclock(uint32_t *millisec, uint32_t *days)
{
    if (!millisec)
        return log_error(-EINVAL, "millisec pointer is NULL\n");
    if (!days)
        return log_error(-EINVAL, "days pointer is NULL\n");

    const UniqueFd fd{socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)};
    if (!fd)
        return log_errno("socket: %m\n");
    if (setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &kAnswerTimeout, sizeof kAnswerTimeout) != 0)
        return log_errno("socket: %m\n");
    if (!connect_to_daemon(fd.get()))
        return log_errno("socket: %m\n");

    uint64_t count;
    uint8_t answer[sizeof count + 1]; // one byte more reveals an answer that is too long
    errno = 0;
    if (receive_answer(fd.get(), answer, sizeof answer) != sizeof count)
        return log_errno("recv: %m\n");
    memcpy(&count, answer, sizeof count);
    *days = static_cast<uint32_t>(count / kMillisecondsPerDay);
    *millisec = static_cast<uint32_t>(count % kMillisecondsPerDay);
    return 0;
}
