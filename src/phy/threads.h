// Threads of link events.
#pragma once

#include <pthread.h>

namespace ddal::phy {

// Starts a thread with all signals blocked: the application's handlers must run in the application's threads. Returns 0
// or the error of pthread_create.
int start_thread(pthread_t *thread, void *(*body)(void *));

// GLib ends the process when it cannot start its two threads, a general one and one for the bus. The first connection
// is therefore preceded by this check. Returns true if two more threads can run, otherwise false with errno EAGAIN.
bool threads_are_free();

} // namespace ddal::phy
