#include <ddal/diagnosis.h>
#include <ddal/log.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <poll.h>
#include <syslog.h>

#include "core/log.h"
#include "core/mutex_lock.h"
#include "core/sigpipe_guard.h"

namespace {

constexpr int kReaderLimit = 1000; // ms
constexpr size_t kLineSize = 1024; // of the handler's lines

// The application's log handler. Lines are written without a lock: a child that is forked in the middle of a change
// must not wait for the thread that makes it.
class Handler {
public:
    void set(ddal_ext_log_handler call, void *user)
    {
        const ddal::core::MutexLock lock{mutex_};
        changes_.fetch_add(1, std::memory_order_acq_rel);
        call_.store(call, std::memory_order_relaxed);
        user_.store(user, std::memory_order_relaxed);
        changes_.fetch_add(1, std::memory_order_release);
    }

    // Returns false without a handler, and in a child whose parent was changing it.
    bool get(ddal_ext_log_handler *call, void **user) const
    {
        for (int attempt = 0; attempt < kAttempts; ++attempt) {
            const unsigned before = changes_.load(std::memory_order_acquire);
            *call = call_.load(std::memory_order_acquire);
            *user = user_.load(std::memory_order_acquire);
            if (before % 2 == 0 && changes_.load(std::memory_order_acquire) == before)
                return *call != nullptr;
            sched_yield();
        }
        return false;
    }

private:
    static constexpr int kAttempts = 1000;

    ddal::core::Mutex mutex_;          // one change at a time
    std::atomic<unsigned> changes_{0}; // odd during a change
    std::atomic<ddal_ext_log_handler> call_{nullptr};
    std::atomic<void *> user_{nullptr};
};

constinit Handler handler;

const char *prefix_of(int priority)
{
    switch (priority) {
    case LOG_ERR: return "[DDAL_ERROR] ";
    case LOG_WARNING: return "[DDAL_WARNING] ";
    case LOG_INFO: return "[DDAL_INFO] ";
    case LOG_DEBUG: return "[DDAL_DEBUG] ";
    default: return "";
    }
}

int64_t monotonic_ms()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

[[gnu::format(printf, 2, 0)]] bool handled(int priority, const char *format, va_list arguments)
{
    ddal_ext_log_handler call = nullptr;
    void *user = nullptr;
    if (!handler.get(&call, &user))
        return false;
    char line[kLineSize];
    if (vsnprintf(line, sizeof line, format, arguments) >= 0)
        call(user, priority, line);
    return true;
}

[[gnu::format(printf, 2, 0)]] void write_line(const char *prefix, const char *format, va_list arguments)
{
    const int saved_errno = errno;
    ddal::core::SigpipeGuard guard;
    flockfile(stderr);
    if (ddal::core::takes_text(stderr)) {
        const bool prefix_lost = fputs(prefix, stderr) < 0;
        errno = saved_errno;
        if (vfprintf(stderr, format, arguments) < 0 || prefix_lost)
            guard.caused();
    }
    funlockfile(stderr);
}

} // namespace

namespace ddal::core {

bool takes_text(FILE *stream)
{
    pollfd place{fileno(stream), POLLOUT, 0}; // a stream in memory has a negative number, which is never ready
    if (place.fd < 0)
        return true;
    const int64_t deadline = monotonic_ms() + kReaderLimit;
    int rc = 0;
    int64_t left = kReaderLimit;
    do {
        rc = poll(&place, 1, static_cast<int>(left));
        left = deadline - monotonic_ms();
    } while (rc < 0 && errno == EINTR && left > 0);
    return rc > 0 || (rc < 0 && errno != EINTR);
}

} // namespace ddal::core

int __ddal_log(int priority, const char *format, ...)
{
    const int saved_errno = errno;
    va_list arguments;
    va_start(arguments, format);
    if (!handled(priority, format, arguments)) {
        va_end(arguments);
        errno = saved_errno;
        va_start(arguments, format);
        write_line(prefix_of(priority), format, arguments);
    }
    va_end(arguments);

    // Writing may have changed errno. "%m" must read the same value in both places.
    errno = saved_errno;
    va_start(arguments, format);
    vsyslog(priority, format, arguments);
    va_end(arguments);

    errno = saved_errno;
    return 0;
}

int ddal_ext_set_log_handler(ddal_ext_log_handler call, void *user)
{
    handler.set(call, user);
    return 0;
}
