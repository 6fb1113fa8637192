// Lets one thread write to a pipe whose reader may be gone, without raising SIGPIPE in the process.
#pragma once

#include <cerrno>
#include <csignal>

namespace ddal::core {

// While it lives, a write of the calling thread to a pipe without a reader only fails with EPIPE. After an EPIPE call
// `caused()`, which takes back the signal unless one was pending before. The caller's mask and pending signals end as
// they were.
class SigpipeGuard {
public:
    SigpipeGuard()
    {
        sigset_t pending;
        sigpending(&pending);
        was_pending_ = sigismember(&pending, SIGPIPE) == 1;
        const sigset_t only = sigpipe_set();
        pthread_sigmask(SIG_BLOCK, &only, &old_mask_);
    }
    SigpipeGuard(const SigpipeGuard &) = delete;
    SigpipeGuard &operator=(const SigpipeGuard &) = delete;
    ~SigpipeGuard()
    {
        const int saved_errno = errno;
        if (caused_ && !was_pending_)
            consume();
        pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr);
        errno = saved_errno;
    }

    void caused() { caused_ = true; }

private:
    static sigset_t sigpipe_set()
    {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGPIPE);
        return set;
    }

    static void consume()
    {
        const sigset_t only = sigpipe_set();
        const struct timespec at_once = {};
        while (sigtimedwait(&only, nullptr, &at_once) < 0 && errno == EINTR) {
        }
    }

    sigset_t old_mask_;
    bool was_pending_ = false;
    bool caused_ = false;
};

} // namespace ddal::core
