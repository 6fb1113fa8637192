// Connections from programs of other users of the machine, and connections in excess.
#pragma once

#include "core/unique_fd.h"

namespace vboard {

using ddal::core::UniqueFd;

// Reports whether the process at the other end of a local or a TCP socket belongs to the daemon's user or to root.
bool is_trusted_local_peer(int fd);
bool is_trusted_tcp_peer(int fd);

// Accepts connections. At the limit of descriptors it ends the waiting connection, which would otherwise keep the
// listener readable and the daemon busy.
class Acceptor {
public:
    Acceptor() = default;
    explicit Acceptor(UniqueFd listener);

    int descriptor() const { return listener_.get(); }
    // Returns a socket that does not block, or none.
    UniqueFd accept();

private:
    UniqueFd listener_;
    UniqueFd spare_; // makes room to end a connection
};

} // namespace vboard
