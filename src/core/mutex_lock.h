// The library's one way to hold a mutex for a scope. Mutexes are pthread_mutex_t: conditions with a clock, forks and
// errors of locking need that kind.
#pragma once

#include <pthread.h>

namespace ddal::core {

class MutexLock {
public:
    explicit MutexLock(pthread_mutex_t &mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    MutexLock(const MutexLock &) = delete;
    MutexLock &operator=(const MutexLock &) = delete;
    ~MutexLock() { pthread_mutex_unlock(&mutex_); }

private:
    pthread_mutex_t &mutex_;
};

} // namespace ddal::core
