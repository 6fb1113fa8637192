// GLib and GIO, loaded with the first link event: a process without link events does not pay for the D-Bus library. The
// prototypes come from GIO's headers.
#pragma once

#include <gio/gio.h>

// The calls, by their names without "g_".
#define DDAL_GIO_CALLS(CALL)                                                                                           \
    CALL(bus_get_sync)                                                                                                 \
    CALL(dbus_connection_call)                                                                                         \
    CALL(dbus_connection_call_finish)                                                                                  \
    CALL(dbus_connection_is_closed)                                                                                    \
    CALL(dbus_connection_set_exit_on_close)                                                                            \
    CALL(dbus_proxy_get_cached_property)                                                                               \
    CALL(dbus_proxy_get_connection)                                                                                    \
    CALL(dbus_proxy_get_interface_name)                                                                                \
    CALL(dbus_proxy_get_name)                                                                                          \
    CALL(dbus_proxy_get_name_owner)                                                                                    \
    CALL(dbus_proxy_get_object_path)                                                                                   \
    CALL(dbus_proxy_set_cached_property)                                                                               \
    CALL(dbus_proxy_new_for_bus_sync)                                                                                  \
    CALL(error_free)                                                                                                   \
    CALL(free)                                                                                                         \
    CALL(hash_table_destroy)                                                                                           \
    CALL(hash_table_foreach)                                                                                           \
    CALL(hash_table_insert)                                                                                            \
    CALL(hash_table_lookup)                                                                                            \
    CALL(hash_table_new_full)                                                                                          \
    CALL(hash_table_remove)                                                                                            \
    CALL(idle_add)                                                                                                     \
    CALL(main_loop_is_running)                                                                                         \
    CALL(main_loop_new)                                                                                                \
    CALL(main_loop_run)                                                                                                \
    CALL(object_ref)                                                                                                   \
    CALL(object_unref)                                                                                                 \
    CALL(signal_connect_data)                                                                                          \
    CALL(signal_handler_disconnect)                                                                                    \
    CALL(variant_equal)                                                                                                \
    CALL(variant_get)                                                                                                  \
    CALL(variant_get_string)                                                                                           \
    CALL(variant_is_of_type)                                                                                           \
    CALL(variant_iter_init)                                                                                            \
    CALL(variant_iter_next)                                                                                            \
    CALL(variant_new)                                                                                                  \
    CALL(variant_n_children)                                                                                           \
    CALL(variant_unref)

namespace ddal::phy {

struct Gio {
#define DDAL_GIO_MEMBER(name) decltype(&::g_##name) name;
    DDAL_GIO_CALLS(DDAL_GIO_MEMBER)
#undef DDAL_GIO_MEMBER
};

// Loads the library, which then stays loaded. Returns null and logs on failure. Call from one thread at a time.
const Gio *load_gio();

} // namespace ddal::phy
