// Management bus of the external multiport switch: 16-bit registers at bus addresses. The kernel offers two ways to it.
#pragma once

#include <cstdint>

#include "core/unique_fd.h"

namespace ddal::external {

constexpr uint32_t kNoAddress = UINT32_MAX;

class Mdio {
public:
    // Both return 0 or a negative errno.
    virtual int read(uint32_t address, uint32_t reg, uint16_t *value) = 0;
    virtual int write(uint32_t address, uint32_t reg, uint16_t value) = 0;

protected:
    ~Mdio() = default;
};

// The phy_regs nodes of a bus, one for each address.
class NodeMdio final : public Mdio {
public:
    explicit NodeMdio(const char *bus) : bus_(bus) {}
    int read(uint32_t address, uint32_t reg, uint16_t *value) override;
    int write(uint32_t address, uint32_t reg, uint16_t value) override;

    // Reports whether the bus has a node for an address.
    bool has(uint32_t address) const;

private:
    bool open_node(uint32_t address);

    const char *bus_;
    core::UniqueFd node_;
    uint32_t address_ = kNoAddress; // that the open node belongs to
};

// The MII requests of the network interface that owns the bus.
class InterfaceMdio final : public Mdio {
public:
    explicit InterfaceMdio(uint32_t number) : number_(number) {}
    int read(uint32_t address, uint32_t reg, uint16_t *value) override;
    int write(uint32_t address, uint32_t reg, uint16_t value) override;

private:
    int request(unsigned long number, uint32_t address, uint32_t reg, uint16_t *value);

    uint32_t number_; // 3 for eth3
    core::UniqueFd socket_;
};

} // namespace ddal::external
