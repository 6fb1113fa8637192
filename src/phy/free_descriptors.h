// GLib ends the process when it cannot open a descriptor for a wake-up. Every call that opens some is therefore
// preceded by a check that enough are free.
#pragma once

namespace ddal::phy {

// Reserve for descriptors that other threads open between the check and the call.
constexpr int kSpareDescriptors = 4;

// Wake-ups of the default main context, of GLib's two threads and of the wait for the bus's greeting, plus the socket.
constexpr int kToConnectBus = 5 + kSpareDescriptors;

// The wake-up of the wait for the link's service.
constexpr int kToCreateProxy = 1 + kSpareDescriptors;

// Returns true if the process and the system can open this many descriptors. Otherwise false with errno EMFILE or
// ENFILE.
bool descriptors_are_free(int count);

} // namespace ddal::phy
