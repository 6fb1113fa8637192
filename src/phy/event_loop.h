// The thread that receives link events from D-Bus, started with the first descriptor.
#pragma once

#include "phy/gio.h"

namespace ddal::phy {

// Starts the loop on the first call. Null if it does not run.
const Gio *running_event_loop();

// The library that the loop uses; it has been loaded.
const Gio *loaded_gio();

// The loop's registry: from descriptor to registration. Null before the first registration and after a failed start.
// Valid while the registry's lock is held.
GHashTable *event_registry();

// Holds the lock of the registry.
class RegistryLock {
public:
    RegistryLock();
    ~RegistryLock();
    RegistryLock(const RegistryLock &) = delete;
    RegistryLock &operator=(const RegistryLock &) = delete;

    // 0, or the error of pthread_mutex_lock.
    int error() const { return error_; }

private:
    int error_;
};

void initialize_phy_events();
void *event_loop_thread(void *unused);
int event_loop_initialized_callback(void *unused);

} // namespace ddal::phy
