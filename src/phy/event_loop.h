// The thread that receives link events from D-Bus, started with the first descriptor.
#pragma once

#include "core/mutex_lock.h"
#include "phy/gio.h"

namespace ddal::phy {

// Makes this process the owner of the links, unless another process owns them. Call it before taking any lock. Returns
// true if this process owns them.
bool claim_links();

// Returns true in a child that was forked after its parent had claimed the links. The child must not use the loop or
// GLib, where it could wait without end.
bool links_are_of_another_process();

// Starts the loop on the first call. Returns null if it does not run.
const Gio *running_event_loop();

// Returns the library that the loop uses; it must have been loaded.
const Gio *loaded_gio();

extern core::Mutex registry_mutex;

// Returns the loop's registry, which maps a descriptor to its registration. Null before the first registration, after a
// failed start and in a process that does not own the links.
GHashTable *event_registry() DDAL_REQUIRES(registry_mutex);

// Holds the registry's lock in the process that owns the links.
class DDAL_SCOPED_CAPABILITY RegistryLock {
public:
    RegistryLock() DDAL_ACQUIRE(registry_mutex);
    ~RegistryLock() DDAL_RELEASE();
    RegistryLock(const RegistryLock &) = delete;
    RegistryLock &operator=(const RegistryLock &) = delete;

    // Returns 0 or the error of pthread_mutex_lock.
    int error() const { return error_; }

private:
    const bool is_ours_;
    int error_ = 0;
};

void initialize_phy_events();
void *event_loop_thread(void *unused);
int event_loop_initialized_callback(void *unused);

} // namespace ddal::phy
