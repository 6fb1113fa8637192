// The external multiport switch on the board: its nodes, the interface that owns its bus, its commands.
#pragma once

#include <string>

#include "daemon/model.h"
#include "daemon/models/multiport_chip.h"
#include "page/protocol.h"

namespace vboard {

class Multiport : public Model {
public:
    explicit Multiport(Board &board);
    int read(const Node &node, uint64_t offset, std::span<uint8_t> out) override;
    int write(const Node &node, uint64_t offset, std::span<const uint8_t> in) override;

    // An MII request to an interface. 0 or -errno.
    int request(const std::string &interface, uint32_t number, InterfaceRequest &request);
    // The cable of a port.
    void plug(uint32_t port, bool partner);

    static ControlTable commands();

private:
    std::string show() const;

    bool fitted_ = true;
    std::string owner_ = "eth3";
    MultiportChip chip_;
};

} // namespace vboard
