#include "phy/threads.h"

#include <cerrno>
#include <csignal>

#include "core/mutex_lock.h"

namespace ddal::phy {

namespace {

core::Mutex counting; // held until both threads exist at the same time

void *wait_for_the_count(void *)
{
    const core::MutexLock lock(counting);
    return nullptr;
}

} // namespace

int start_thread(pthread_t *thread, void *(*body)(void *))
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const int rc = pthread_create(thread, nullptr, body, nullptr);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return rc;
}

bool threads_are_free()
{
    pthread_t threads[2];
    int started = 0;
    int rc = 0;
    {
        const core::MutexLock lock(counting);
        for (pthread_t &thread : threads)
            if (rc == 0 && (rc = start_thread(&thread, wait_for_the_count)) == 0)
                ++started;
    }
    while (started > 0)
        pthread_join(threads[--started], nullptr);
    errno = rc;
    return rc == 0;
}

} // namespace ddal::phy
