// Registrations of link events: a D-Bus proxy whose property changes make an eventfd readable.
#pragma once

#include "phy/event_loop.h"
#include "phy/gio.h"

namespace ddal::phy {

// Watches "OperationalState" of one link object. Returns the descriptor, or -1.
int _ddal_phy_event_register(const char *bus_name, const char *interface_name, const char *object_path);

// Handles property changes on the event thread; `user_data` is the descriptor.
void on_properties_changed(GDBusProxy *proxy, GVariant *changed, const char *const *invalidated, void *user_data);

// Makes the descriptor of every registration readable.
void notify_all() DDAL_REQUIRES(registry_mutex);

// Ends a registration that leaves the registry. Afterwards its handler no longer runs, so the descriptor may be closed.
void release_registration(void *registration);

} // namespace ddal::phy
