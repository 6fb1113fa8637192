// The library's mutex, and its one way to hold one for a scope. It is a pthread_mutex_t: conditions with a clock, forks
// and errors of locking need that kind. Nothing destroys it, because threads may use it while the process exits.
#pragma once

#include <pthread.h>

#include "core/thread_safety.h"

namespace ddal::core {

class DDAL_CAPABILITY("mutex") Mutex {
public:
    constexpr Mutex() = default;
    Mutex(const Mutex &) = delete;
    Mutex &operator=(const Mutex &) = delete;

    // Returns 0 or the error of pthread_mutex_lock.
    int lock() DDAL_ACQUIRE() { return pthread_mutex_lock(&native_); }
    int unlock() DDAL_RELEASE() { return pthread_mutex_unlock(&native_); }

    // For a condition. The caller holds the mutex before and after the wait.
    pthread_mutex_t *native() { return &native_; }

private:
    pthread_mutex_t native_ = PTHREAD_MUTEX_INITIALIZER;
};

class DDAL_SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex &mutex) DDAL_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    MutexLock(const MutexLock &) = delete;
    MutexLock &operator=(const MutexLock &) = delete;
    ~MutexLock() DDAL_RELEASE() { mutex_.unlock(); }

private:
    Mutex &mutex_;
};

} // namespace ddal::core
