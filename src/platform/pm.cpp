// The unit's run-time clock, asked of the uptime daemon.
#include <ddal/pm.h>

#include <cerrno>
#include <cstring>
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

// The full address size counts: the padding is part of an abstract name.
bool connect_to_daemon(int fd)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path + 1, kUptimeSocketName, sizeof kUptimeSocketName - 1);
    return connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
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
    uint8_t answer[sizeof count + 1]; // one byte more, so that an answer that is too long is noticed
    errno = 0;
    if (recv(fd.get(), answer, sizeof answer, 0) != sizeof count)
        return log_errno("recv: %m\n");
    memcpy(&count, answer, sizeof count);
    *days = static_cast<uint32_t>(count / kMillisecondsPerDay);
    *millisec = static_cast<uint32_t>(count % kMillisecondsPerDay);
    return 0;
}
