// The connection to the system bus, on which services report the states of the links.
#pragma once

#include "phy/gio_owner.h"

namespace ddal::phy {

// Returns the connection, with the event loop running. Empty and logged if either is missing.
UniqueObject<GDBusConnection> find_bus(const char *caller, const char *object_path);

// Logs the error that keeps the link of this path from being watched, and frees it.
void log_proxy_failure(const char *caller, const char *object_path, GError *error);

} // namespace ddal::phy
