#include "switch/external/mdio.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/mii.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "core/log.h"
#include "core/transfer.h"

using ddal::core::minus_errno;

namespace ddal::external {

namespace {

struct NodePath {
    NodePath(const char *bus, uint32_t address)
    {
        snprintf(text, sizeof text, "/sys/bus/mdio_bus/devices/%s:%02x/phy_regs", bus, address & 0x1F);
    }
    char text[80];
};

off_t offset_of(uint32_t reg)
{
    return static_cast<off_t>(reg * sizeof(uint16_t));
}

} // namespace

bool NodeMdio::has(uint32_t address) const
{
    return access(NodePath{bus_, address}.text, F_OK) == 0;
}

bool NodeMdio::open_node(uint32_t address)
{
    if (node_ && address_ == address)
        return true;
    node_.reset(open(NodePath{bus_, address}.text, O_RDWR | O_CLOEXEC));
    address_ = address;
    return static_cast<bool>(node_);
}

int NodeMdio::read(uint32_t address, uint32_t reg, uint16_t *value)
{
    const auto move = [&] { return pread(node_.get(), value, sizeof *value, offset_of(reg)); };
    return open_node(address) && core::moves_whole(sizeof *value, move) ? 0 : minus_errno();
}

int NodeMdio::write(uint32_t address, uint32_t reg, uint16_t value)
{
    const auto move = [&] { return pwrite(node_.get(), &value, sizeof value, offset_of(reg)); };
    return open_node(address) && core::moves_whole(sizeof value, move) ? 0 : minus_errno();
}

int InterfaceMdio::request(unsigned long number, uint32_t address, uint32_t reg, uint16_t *value)
{
    if (!socket_)
        socket_.reset(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket_)
        return minus_errno();
    ifreq carrier{};
    snprintf(carrier.ifr_name, sizeof carrier.ifr_name, "eth%u", number_);
    mii_ioctl_data registers{};
    registers.phy_id = static_cast<uint16_t>(address);
    registers.reg_num = static_cast<uint16_t>(reg);
    registers.val_in = *value;
    static_assert(sizeof registers <= sizeof carrier.ifr_ifru);
    memcpy(&carrier.ifr_ifru, &registers, sizeof registers);
    int rc = 0;
    do
        rc = ioctl(socket_.get(), number, &carrier);
    while (rc != 0 && errno == EINTR);
    if (rc != 0)
        return minus_errno();
    memcpy(&registers, &carrier.ifr_ifru, sizeof registers);
    *value = registers.val_out;
    return 0;
}

int InterfaceMdio::read(uint32_t address, uint32_t reg, uint16_t *value)
{
    uint16_t answer = 0;
    const int rc = request(SIOCGMIIREG, address, reg, &answer);
    *value = answer;
    return rc;
}

int InterfaceMdio::write(uint32_t address, uint32_t reg, uint16_t value)
{
    return request(SIOCSMIIREG, address, reg, &value);
}

} // namespace ddal::external
