#include "phy/bus.h"

#include <pthread.h>
#include <utility>

#include "core/log.h"
#include "core/mutex_lock.h"
#include "phy/free_descriptors.h"
#include "phy/link_event.h"
#include "phy/threads.h"

using ddal::core::Mutex;
using ddal::core::MutexLock;

namespace ddal::phy {

namespace {

// One at a time, because two would count each other's descriptors as taken.
Mutex connecting;
bool has_connected DDAL_GUARDED_BY(connecting); // GLib's threads run since then

// Stays while the bus lasts, even without a registration: with each connection that GLib ends, it can lose some blocks
// of memory.
GDBusConnection *kept DDAL_GUARDED_BY(registry_mutex);

// Releases the kept connection.
void drop_bus() DDAL_REQUIRES(registry_mutex)
{
    const UniqueObject<GDBusConnection> dropped{std::exchange(kept, nullptr)};
}

// Without the bus the states are unknown. Wakes every waiting caller.
void on_bus_closed(GDBusConnection *connection, gboolean, GError *, void *)
{
    const RegistryLock lock;
    if (connection == kept)
        drop_bus();
    notify_all();
}

// Returns the kept connection, or an empty reference without one.
UniqueObject<GDBusConnection> bus_in_use()
{
    const RegistryLock lock;
    if (lock.error() != 0 || !kept)
        return {};
    if (!loaded_gio()->dbus_connection_is_closed(kept))
        return share(kept);
    drop_bus();
    return {};
}

UniqueObject<GDBusConnection> connect_bus(const char *caller, const Gio *gio, const char *object_path)
    DDAL_REQUIRES(connecting)
{
    if (!has_connected && !threads_are_free()) {
        log_line_as(LOG_ERR, caller, "error creating dbus proxy for object path %s: %m\n", object_path);
        return {};
    }
    GError *error = nullptr;
    UniqueObject<GDBusConnection> bus{gio->bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error)};
    if (!bus) {
        log_proxy_failure(caller, object_path, error);
        return {};
    }
    has_connected = true;
    // GLib would otherwise end the application when the bus restarts.
    gio->dbus_connection_set_exit_on_close(bus.get(), FALSE);
    gio->signal_connect_data(bus.get(), "closed", G_CALLBACK(on_bus_closed), nullptr, nullptr, GConnectFlags{});
    const RegistryLock lock;
    if (lock.error() == 0)
        kept = share(bus.get()).release();
    return bus;
}

} // namespace

void log_proxy_failure(const char *caller, const char *object_path, GError *error)
{
    const UniqueError reason{error};
    log_line_as(LOG_ERR, caller, "error creating dbus proxy for object path %s: %s\n", object_path, reason->message);
}

UniqueObject<GDBusConnection> find_bus(const char *caller, const char *object_path)
{
    const MutexLock one_at_a_time(connecting);
    UniqueObject<GDBusConnection> bus = bus_in_use();
    if (!bus && !descriptors_are_free(kToConnectBus)) {
        log_line_as(LOG_ERR, caller, "unable to open eventfd: %d\n", errno);
        return {};
    }
    if (const Gio *const gio = running_event_loop())
        return bus ? std::move(bus) : connect_bus(caller, gio, object_path);
    log_line_as(LOG_ERR, caller, "phy event loop is not running!\n");
    return {};
}

} // namespace ddal::phy
