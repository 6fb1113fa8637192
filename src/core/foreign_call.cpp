#include "core/foreign_call.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

#include "core/libc_calls.h"
#include "core/mutex_lock.h"

namespace ddal::core {

namespace {

// Several threads may be in foreign calls at the same time. The first one occupies the numbers, the last one frees
// them.
Mutex mutex;
unsigned users DDAL_GUARDED_BY(mutex);
bool occupied[kStandardStreams] DDAL_GUARDED_BY(mutex);

bool is_open(int number)
{
    return __real_fcntl64(number, F_GETFL) >= 0;
}

bool all_open()
{
    return is_open(STDIN_FILENO) && is_open(STDOUT_FILENO) && is_open(STDERR_FILENO);
}

void occupy() DDAL_REQUIRES(mutex)
{
    while (!all_open()) {
        // An O_PATH descriptor can neither read nor write, and every process has a root directory.
        const int fd = __real_open64("/", O_PATH | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0)
            return;
        if (fd >= kStandardStreams) { // the application has opened a low number meanwhile
            __real_close(fd);
            continue;
        }
        occupied[fd] = true;
    }
}

// Frees the numbers that the library still occupies. A descriptor that the application has put there stays.
void vacate() DDAL_REQUIRES(mutex)
{
    for (int number = 0; number < kStandardStreams; ++number) {
        if (!std::exchange(occupied[number], false))
            continue;
        const int flags = __real_fcntl64(number, F_GETFL);
        if (flags >= 0 && flags & O_PATH)
            __real_close(number);
    }
}

void before_fork() DDAL_ACQUIRE(mutex)
{
    mutex.lock();
}

void in_parent() DDAL_RELEASE(mutex)
{
    mutex.unlock();
}

void in_child() DDAL_RELEASE(mutex) // fork does not copy the other threads and their calls
{
    users = 0;
    vacate();
    mutex.unlock();
}

[[gnu::constructor]] void watch_forks()
{
    pthread_atfork(before_fork, in_parent, in_child);
}

} // namespace

StandardNumbers::StandardNumbers()
{
    const int saved_errno = errno;
    {
        const MutexLock lock(mutex);
        ++users;
        occupy();
    }
    errno = saved_errno;
}

StandardNumbers::~StandardNumbers()
{
    const int saved_errno = errno;
    {
        const MutexLock lock(mutex);
        if (users > 0 && --users == 0)
            vacate();
    }
    errno = saved_errno;
}

} // namespace ddal::core
