// GLib ends the process where it cannot open a descriptor for a wake-up: whether there are enough is asked before each
// call that opens some.
#pragma once

namespace ddal::phy {

// Left over for what other threads of the process open between the question and the call.
constexpr int kSpareDescriptors = 4;

// Wake-ups of the default main context, of GLib's two threads and of the wait for the bus's greeting, and the socket.
constexpr int kToConnectBus = 5 + kSpareDescriptors;

// The wake-up of the wait for the link's service.
constexpr int kToCreateProxy = 1 + kSpareDescriptors;

// True if the process, and the system, have so many descriptors left. False with errno: EMFILE or ENFILE.
bool descriptors_are_free(int count);

} // namespace ddal::phy
