#include "phy/link_event.h"

#include <ddal/phy.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "core/foreign_call.h"
#include "core/log.h"
#include "core/mutex_lock.h"
#include "core/unique_fd.h"
#include "phy/bus.h"
#include "phy/event_loop.h"
#include "phy/free_descriptors.h"
#include "phy/gio_owner.h"

using ddal::core::CancellationHold;
using ddal::core::ForeignCall;
using ddal::core::Mutex;
using ddal::core::MutexLock;
using ddal::core::UniqueFd;

namespace ddal::phy {

namespace {

constexpr const char *kWatchedProperty = "OperationalState";

struct Registration {
    const Gio *gio;
    int fd;
    UniqueObject<GDBusProxy> proxy;
    gulong handler = 0;

    Registration(const Gio *library, int descriptor) : gio(library), fd(descriptor) {}
    ~Registration();
    Registration(const Registration &) = delete;
    Registration &operator=(const Registration &) = delete;
};

// Disconnecting does not wait for a handler that is running on the event thread, and the number of its descriptor may
// soon belong to another file. GLib reports the end of a handler's last use.
Mutex disconnecting; // one disconnection at a time
Mutex gone_mutex;
pthread_cond_t gone_condition = PTHREAD_COND_INITIALIZER; // never destroyed: that would wait for its waiters at exit
int gone_fd DDAL_GUARDED_BY(gone_mutex) = -1;

// A handler's actions precede the close of its descriptor. GLib's locks ensure that; this variable shows it to the
// compiler and to thread checkers.
std::atomic<unsigned> handled{0};

void on_handler_gone(void *user_data, GClosure *)
{
    const MutexLock lock(gone_mutex);
    gone_fd = GPOINTER_TO_INT(user_data);
    pthread_cond_signal(&gone_condition);
}

Registration::~Registration()
{
    if (handler == 0)
        return;
    const MutexLock one_at_a_time(disconnecting);
    gio->signal_handler_disconnect(proxy.get(), handler);
    const MutexLock lock(gone_mutex);
    while (gone_fd != fd)
        pthread_cond_wait(&gone_condition, gone_mutex.native());
    gone_fd = -1;
    handled.load(std::memory_order_acquire);
}

int notify(int fd)
{
    int rc = 0;
    do
        rc = eventfd_write(fd, 1);
    while (rc != 0 && errno == EINTR);
    return rc;
}

void notify_entry(void *key, void *, void *)
{
    notify(GPOINTER_TO_INT(key));
}

// Does nothing if the registration has ended: its descriptor number may already belong to another file.
void notify_if_registered(GDBusProxy *proxy, int fd) DDAL_REQUIRES(registry_mutex)
{
    const auto *const record =
        static_cast<const Registration *>(loaded_gio()->hash_table_lookup(event_registry(), GINT_TO_POINTER(fd)));
    if (record && record->proxy.get() == proxy)
        notify(fd);
}

// A property read that the registration has requested.
struct Refresh {
    UniqueObject<GDBusProxy> proxy;
    int fd;
};

// Runs on the event thread, in the order in which replies and signals arrive.
void on_state_read(GObject *connection, GAsyncResult *result, void *user_data)
{
    const RegistryLock lock; // waits until the requesting registration is complete
    const Gio *const gio = loaded_gio();
    const std::unique_ptr<Refresh> refresh{static_cast<Refresh *>(user_data)};
    const UniqueVariant reply{
        gio->dbus_connection_call_finish(reinterpret_cast<GDBusConnection *>(connection), result, nullptr)};
    // A service that has left the bus since then no longer reports a state.
    GDBusProxy *const proxy = refresh->proxy.get();
    const UniqueText service{gio->dbus_proxy_get_name_owner(proxy)};
    if (!reply || !service)
        return;
    GVariant *told = nullptr;
    gio->variant_get(reply.get(), "(v)", &told);
    const UniqueVariant value{told};
    const UniqueVariant cached{gio->dbus_proxy_get_cached_property(proxy, kWatchedProperty)};
    if (cached && gio->variant_equal(cached.get(), value.get()))
        return;
    gio->dbus_proxy_set_cached_property(proxy, kWatchedProperty, value.get());
    notify_if_registered(proxy, refresh->fd);
}

// The proxy drops a signal that the event thread receives while another thread sets the proxy up. The state is
// therefore read once more, and no later signal can overtake this reply.
void read_state_again(const Gio *gio, GDBusProxy *proxy, int fd)
{
    auto *const refresh = new (std::nothrow) Refresh{share(proxy), fd};
    if (!refresh)
        return;
    gio->dbus_connection_call(gio->dbus_proxy_get_connection(proxy), gio->dbus_proxy_get_name(proxy),
                              gio->dbus_proxy_get_object_path(proxy), "org.freedesktop.DBus.Properties", "Get",
                              gio->variant_new("(ss)", gio->dbus_proxy_get_interface_name(proxy), kWatchedProperty),
                              reinterpret_cast<const GVariantType *>("(v)"), G_DBUS_CALL_FLAGS_NO_AUTO_START, -1,
                              nullptr, on_state_read, refresh);
}

UniqueObject<GDBusProxy> create_proxy(const char *caller, const Gio *gio, const char *bus_name,
                                      const char *interface_name, const char *object_path)
{
    if (!descriptors_are_free(kToCreateProxy))
        return log_error_as(caller, nullptr, "unable to open eventfd: %d\n", errno);
    GError *error = nullptr;
    UniqueObject<GDBusProxy> proxy{gio->dbus_proxy_new_for_bus_sync(
        G_BUS_TYPE_SYSTEM, G_DBUS_PROXY_FLAGS_NONE, nullptr, bus_name, object_path, interface_name, nullptr, &error)};
    if (!proxy)
        log_proxy_failure(caller, object_path, error);
    return proxy;
}

} // namespace

void release_registration(void *registration)
{
    delete static_cast<Registration *>(registration);
}

void notify_all()
{
    if (event_registry())
        loaded_gio()->hash_table_foreach(event_registry(), notify_entry, nullptr);
}

void on_properties_changed(GDBusProxy *, GVariant *changed, const char *const *, void *user_data)
{
    const Gio *const gio = loaded_gio();
    if (gio->variant_n_children(changed) == 0)
        return;

    GVariantIter iterator;
    const char *name = nullptr;
    GVariant *value = nullptr;
    gio->variant_iter_init(&iterator, changed);
    while (gio->variant_iter_next(&iterator, "{&sv}", &name, &value)) {
        const UniqueVariant owned{value};
        if (strcmp(name, kWatchedProperty) != 0)
            continue;
        const int fd = GPOINTER_TO_INT(user_data);
        if (notify(fd) != 0)
            log_line(LOG_ERR, "error writing to eventfd %d: %d\n", fd, errno);
    }
    handled.fetch_add(1, std::memory_order_release);
}

int _ddal_phy_event_register(const char *bus_name, const char *interface_name, const char *object_path)
{
    if (!claim_links())
        return log_error(-1, "phy event loop is not running!\n");
    const ForeignCall call; // GLib opens descriptors for its threads here
    // Outlives the record, whose handler writes to it. Readable at once, so that the first wait returns the present
    // state.
    UniqueFd fd{eventfd(1, EFD_NONBLOCK | EFD_CLOEXEC)};
    if (!fd)
        return log_error(-1, "unable to open eventfd: %d\n", errno);
    const UniqueObject<GDBusConnection> bus = find_bus(__func__, object_path);
    if (!bus)
        return -1;

    const Gio *const gio = loaded_gio();
    std::unique_ptr<Registration> record{new (std::nothrow) Registration(gio, -1)};
    if (!record)
        return log_error(-1, "malloc: %d\n", errno);
    record->proxy = create_proxy(__func__, gio, bus_name, interface_name, object_path);
    if (!record->proxy)
        return -1;
    record->fd = fd.get();
    record->handler =
        gio->signal_connect_data(record->proxy.get(), "g-properties-changed", G_CALLBACK(on_properties_changed),
                                 GINT_TO_POINTER(fd.get()), on_handler_gone, GConnectFlags{});
    if (record->handler == 0)
        return log_error(-1, "error connecting to properties changed signal for object path %s\n", object_path);

    const RegistryLock lock;
    if (lock.error() != 0)
        return log_error(-1, "pthread_mutex_lock failed: %d\n", lock.error());
    read_state_again(gio, record->proxy.get(), fd.get());
    gio->hash_table_insert(event_registry(), GINT_TO_POINTER(fd.get()), record.release());
    return fd.release();
}

namespace {

// Stores the state that the proxy holds. Returns false when service or bus have gone, or when the state is unknown.
bool cached_state(const Gio *gio, const Registration &record, uint16_t *state)
{
    if (gio->dbus_connection_is_closed(gio->dbus_proxy_get_connection(record.proxy.get())))
        return false;
    const UniqueVariant value{gio->dbus_proxy_get_cached_property(record.proxy.get(), kWatchedProperty)};
    if (!value || !gio->variant_is_of_type(value.get(), G_VARIANT_TYPE_STRING))
        return false;
    const char *const text = gio->variant_get_string(value.get(), nullptr);
    *state = strcmp(text, "off") != 0 && strcmp(text, "no-carrier") != 0;
    return true;
}

// Reads the counter back to 0. Succeeds without a pending event. A descriptor that is not an eventfd can return a short
// read, which does not set errno.
int clear_event(int fd)
{
    eventfd_t count = 0;
    int rc = 0;
    do {
        errno = 0;
        rc = eventfd_read(fd, &count);
    } while (rc != 0 && errno == EINTR);
    return rc == 0 || errno == EAGAIN ? 0 : -1;
}

} // namespace

} // namespace ddal::phy

using namespace ddal::phy;

int ddal_phy_event_retrieve(int fd, uint16_t *state)
{
    const CancellationHold hold;
    if (!state)
        return log_error(DDAL_ERR_FAILURE, "state is NULL\n");
    if (links_are_of_another_process()) // the event stays pending in the parent
        return log_error(-ENOENT, "ddal_phy_event_register has not been called yet\n\n");
    if (clear_event(fd) != 0)
        return log_error(-EIO, "error reading eventfd %d: %d\n", fd, errno);

    const RegistryLock lock;
    if (lock.error() != 0)
        return log_error(-EIO, "pthread_mutex_lock failed: %d\n", lock.error());
    if (!event_registry())
        return log_error(-ENOENT, "ddal_phy_event_register has not been called yet\n\n");
    const Gio *const gio = loaded_gio();
    const auto *const record =
        static_cast<const Registration *>(gio->hash_table_lookup(event_registry(), GINT_TO_POINTER(fd)));
    if (!record)
        return log_error(-ENOENT, "could not find info associated with file descriptor: %d\n", fd);
    if (!cached_state(gio, *record, state))
        return log_error(-EIO, "could not retrieve OperationalState for fd %d\n\n", fd);
    return 0;
}

int ddal_phy_event_unregister(int fd)
{
    const CancellationHold hold;
    const RegistryLock lock;
    if (lock.error() != 0)
        return log_error(-EIO, "pthread_mutex_lock failed: %d\n", lock.error());
    if (!event_registry())
        return log_error(-ENOENT, "ddal_phy_event_register has not been called yet\n\n");
    if (!loaded_gio()->hash_table_remove(event_registry(), GINT_TO_POINTER(fd)))
        return log_error(-ENOENT, "unable to remove from hash table fd=%d\n", fd);
    close(fd); // under the lock, so that the number cannot be reused while its entry may still be read
    return 0;
}
