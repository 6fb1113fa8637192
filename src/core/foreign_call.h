// Guards for calls that must not be cancelled half-way or receive the number of a standard stream.
#pragma once

#include <pthread.h>

namespace ddal::core {

// Holds off deferred cancellation of the calling thread while it lives.
class CancellationHold {
public:
    CancellationHold() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    CancellationHold(const CancellationHold &) = delete;
    CancellationHold &operator=(const CancellationHold &) = delete;
    ~CancellationHold() { pthread_setcancelstate(before_, nullptr); }

private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

// Occupies the descriptor numbers of closed standard streams while it lives. A write to such a number fails as before.
// Keeps errno.
class StandardNumbers {
public:
    StandardNumbers();
    StandardNumbers(const StandardNumbers &) = delete;
    StandardNumbers &operator=(const StandardNumbers &) = delete;
    ~StandardNumbers();
};

// Guards a call into a library that may open descriptors and may be a cancellation point.
class ForeignCall {
    CancellationHold hold_;
    StandardNumbers numbers_;
};

} // namespace ddal::core
