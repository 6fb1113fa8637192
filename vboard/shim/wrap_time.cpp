// Time of the board: with `vboard run --speed N`, N board seconds pass in one second of the host.
#include "shim.h"

#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/time.h>
#include <time.h>

namespace vboard::shim {

namespace {

constexpr int64_t kSecond = 1000000000;

int64_t nanoseconds(const timespec &t)
{
    return int64_t{t.tv_sec} * kSecond + t.tv_nsec;
}

timespec to_timespec(int64_t ns)
{
    if (ns < 0)
        ns = 0;
    timespec t;
    t.tv_sec = static_cast<time_t>(ns / kSecond);
    t.tv_nsec = static_cast<long>(ns % kSecond);
    return t;
}

bool is_scaled(clockid_t clock)
{
    return clock == CLOCK_REALTIME || clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_RAW ||
           clock == CLOCK_BOOTTIME || clock == CLOCK_REALTIME_COARSE || clock == CLOCK_MONOTONIC_COARSE ||
           clock == CLOCK_TAI;
}

int64_t epoch_of(clockid_t clock)
{
    const bool real = clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE || clock == CLOCK_TAI;
    return page()->epoch_ns[real ? 0 : 1];
}

// Converts an absolute board time to host time.
timespec absolute_to_host(clockid_t clock, const timespec &board)
{
    const int64_t epoch = epoch_of(clock);
    return to_timespec(epoch + (nanoseconds(board) - epoch) / speed());
}

using ClockGettime = int(clockid_t, timespec *);

int board_clock(clockid_t clock, timespec *out)
{
    const int result = NEXT(ClockGettime, clock_gettime)(clock, out);
    if (result == 0 && speed() > 1 && is_scaled(clock)) {
        const int64_t epoch = epoch_of(clock);
        *out = to_timespec(epoch + (nanoseconds(*out) - epoch) * speed());
    }
    return result;
}

} // namespace

uint32_t speed()
{
    const Page *p = page();
    return p && p->speed > 1 ? p->speed : 1;
}

int64_t board_to_host(int64_t ns)
{
    if (speed() == 1 || ns <= 0)
        return ns;
    return (ns + speed() - 1) / speed();
}

WRAP(int, clock_gettime, clockid_t clock, timespec *out)
{
    return board_clock(clock, out);
}

WRAP(int, gettimeofday, timeval *out, void *zone)
{
    if (speed() == 1)
        return NEXT(int(timeval *, void *), gettimeofday)(out, zone);
    timespec now;
    board_clock(CLOCK_REALTIME, &now);
    out->tv_sec = now.tv_sec;
    out->tv_usec = static_cast<suseconds_t>(now.tv_nsec / 1000);
    return 0;
}

WRAP(time_t, time, time_t *out)
{
    timespec now;
    board_clock(CLOCK_REALTIME, &now);
    if (out)
        *out = now.tv_sec;
    return now.tv_sec;
}

namespace {

int sleep_for(int64_t board_ns, timespec *left)
{
    timespec host = to_timespec(board_to_host(board_ns));
    timespec rest{};
    const int result = NEXT(int(const timespec *, timespec *), nanosleep)(&host, &rest);
    if (result != 0 && left)
        *left = to_timespec(nanoseconds(rest) * speed());
    return result;
}

} // namespace

WRAP(int, nanosleep, const timespec *span, timespec *left)
{
    return sleep_for(nanoseconds(*span), left);
}

WRAP(int, clock_nanosleep, clockid_t clock, int flags, const timespec *span, timespec *left)
{
    using Real = int(clockid_t, int, const timespec *, timespec *);
    if (speed() == 1 || !is_scaled(clock))
        return NEXT(Real, clock_nanosleep)(clock, flags, span, left);
    const timespec host =
        (flags & TIMER_ABSTIME) ? absolute_to_host(clock, *span) : to_timespec(board_to_host(nanoseconds(*span)));
    return NEXT(Real, clock_nanosleep)(clock, flags, &host, left);
}

WRAP(int, usleep, useconds_t span)
{
    return sleep_for(int64_t{span} * 1000, nullptr);
}

WRAP(unsigned, sleep, unsigned span)
{
    timespec left{};
    if (sleep_for(int64_t{span} * kSecond, &left) == 0)
        return 0;
    return static_cast<unsigned>(left.tv_sec + (left.tv_nsec > 0 ? 1 : 0));
}

namespace {

int wrapped_poll(pollfd *entries, nfds_t count, int64_t board_ns, const sigset_t *mask, bool endless)
{
    const timespec span = to_timespec(board_to_host(board_ns));
    using Real = int(pollfd *, nfds_t, const timespec *, const sigset_t *);
    const int ready = NEXT(Real, ppoll)(entries, count, endless ? nullptr : &span, mask);
    for (nfds_t i = 0; ready > 0 && i < count; ++i) {
        if ((entries[i].revents & POLLPRI) == 0)
            continue;
        const Node *node = node_of(entries[i].fd);
        if (node && node->kind == NodeKind::kSignal)
            take_signal(entries[i].fd);
    }
    return ready;
}

// Returns true for the check whether standard error accepts a log line. It is not a step of an operation.
bool is_for_a_log_line(const pollfd *entries, nfds_t count)
{
    return count == 1 && entries[0].fd == STDERR_FILENO;
}

} // namespace

WRAP(int, poll, pollfd *entries, nfds_t count, int timeout)
{
    const int64_t board_ns = int64_t{timeout} * 1000000;
    if (is_for_a_log_line(entries, count))
        return wrapped_poll(entries, count, board_ns, nullptr, timeout < 0);
    Call around("poll", "");
    if (around.fails())
        return -1;
    return wrapped_poll(entries, count, board_ns, nullptr, timeout < 0);
}

WRAP_AS(int, poll_chk, "__poll_chk", pollfd *entries, nfds_t count, int timeout, size_t)
{
    return shim_poll(entries, count, timeout);
}

WRAP(int, ppoll, pollfd *entries, nfds_t count, const timespec *timeout, const sigset_t *mask)
{
    Call around("poll", "");
    if (around.fails())
        return -1;
    return wrapped_poll(entries, count, timeout ? nanoseconds(*timeout) : 0, mask, !timeout);
}

WRAP(int, select, int count, fd_set *in, fd_set *out, fd_set *special, timeval *timeout)
{
    Call around("select", "");
    if (around.fails())
        return -1;
    using Real = int(int, fd_set *, fd_set *, fd_set *, timeval *);
    if (!timeout || speed() == 1)
        return NEXT(Real, select)(count, in, out, special, timeout);
    const int64_t host = board_to_host((int64_t{timeout->tv_sec} * 1000000 + timeout->tv_usec) * 1000) / 1000;
    timeval scaled;
    scaled.tv_sec = static_cast<time_t>(host / 1000000);
    scaled.tv_usec = static_cast<suseconds_t>(host % 1000000);
    return NEXT(Real, select)(count, in, out, special, &scaled);
}

WRAP(int, pselect, int count, fd_set *in, fd_set *out, fd_set *special, const timespec *timeout, const sigset_t *mask)
{
    Call around("select", "");
    if (around.fails())
        return -1;
    const timespec span = timeout ? to_timespec(board_to_host(nanoseconds(*timeout))) : timespec{};
    using Real = int(int, fd_set *, fd_set *, fd_set *, const timespec *, const sigset_t *);
    return NEXT(Real, pselect)(count, in, out, special, timeout ? &span : nullptr, mask);
}

WRAP(int, epoll_wait, int fd, epoll_event *events, int most, int timeout)
{
    int host = timeout;
    if (timeout > 0)
        host = static_cast<int>((int64_t{timeout} + speed() - 1) / speed());
    return NEXT(int(int, epoll_event *, int, int), epoll_wait)(fd, events, most, host);
}

WRAP(int, sem_timedwait, sem_t *semaphore, const timespec *until)
{
    using Real = int(sem_t *, const timespec *);
    if (speed() == 1)
        return NEXT(Real, sem_timedwait)(semaphore, until);
    const timespec host = absolute_to_host(CLOCK_REALTIME, *until);
    return NEXT(Real, sem_timedwait)(semaphore, &host);
}

} // namespace vboard::shim
