// The thread that receives link events from D-Bus, started with the first descriptor.
#pragma once

#include "phy/gio.h"

namespace ddal::phy {

// Makes the links those of this process, unless they are another's. Comes before any lock is taken. True: they are its.
bool claim_links();

// True in a process that was forked after its parent had claimed the links. The loop and GLib may not be used there: it
// could wait for ever.
bool links_are_of_another_process();

// Starts the loop on the first call. Null if it does not run.
const Gio *running_event_loop();

// The library that the loop uses; it has been loaded.
const Gio *loaded_gio();

// The loop's registry: from descriptor to registration. Null before the first registration and after a failed start.
// Valid while the registry's lock is held. Null in a process whose links these are not.
GHashTable *event_registry();

// Holds the lock of the registry, where the links are those of this process.
class RegistryLock {
public:
    RegistryLock();
    ~RegistryLock();
    RegistryLock(const RegistryLock &) = delete;
    RegistryLock &operator=(const RegistryLock &) = delete;

    // 0, or the error of pthread_mutex_lock.
    int error() const { return error_; }

private:
    const bool is_ours_;
    int error_ = 0;
};

void initialize_phy_events();
void *event_loop_thread(void *unused);
int event_loop_initialized_callback(void *unused);

} // namespace ddal::phy
