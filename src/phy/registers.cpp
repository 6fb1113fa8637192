#include "phy/registers.h"

#include <ddal/bcm.h>
#include <ddal/phy.h>

#include <cerrno>
#include <fcntl.h>

#include "core/log.h"
#include "core/transfer.h"
#include "core/unique_fd.h"
#include "identity/boards.h"
#include "phy/association.h"

using ddal::core::UniqueFd;

namespace ddal::phy {

namespace {

struct RegsNode {
    bool two_buses;
    uint32_t dev_id;
    const char *path;
};

constexpr RegsNode kRegsNodes[] = {
    {true, 0, "/sys/bus/mdio_bus/devices/0.0:00/phy_regs"},
    {true, 1, "/sys/bus/mdio_bus/devices/0.0:01/phy_regs"},
    {true, 3, "/sys/bus/mdio_bus/devices/0.1:01/phy_regs"},
    {false, 0, "/sys/bus/mdio_bus/devices/2090300.mdio:00/phy_regs"},
    {false, 1, "/sys/bus/mdio_bus/devices/2090300.mdio:01/phy_regs"},
};

// Returns the offset of a two-byte register in its page's part of the node.
off_t offset_of(uint32_t reg, uint32_t page)
{
    return static_cast<off_t>(uint64_t{reg} * 2 | uint64_t{page} << 16);
}

} // namespace

int get_phy_regs_filename(uint32_t dev_id, const char **filename)
{
    const bool two_buses = identity::this_board().two_mdio_buses;
    for (const RegsNode &node : kRegsNodes) {
        if (node.two_buses == two_buses && node.dev_id == dev_id) {
            *filename = node.path;
            return 0;
        }
    }
    return log_error(DDAL_ERR_FAILURE, "cannot match phy_regs node to interface dev_id %d\n", static_cast<int>(dev_id));
}

namespace {

// Opens the node of an interface's PHY and calls `move` to transfer one register. `call` names the transfer in the log.
template <typename Move>
int transfer(const char *caller, uint32_t dev_id, int flags, const char *call, Move move)
{
    const char *path = nullptr;
    if (get_phy_regs_filename(dev_id, &path) != 0)
        return DDAL_ERR_FAILURE;
    UniqueFd fd{open(path, flags | O_CLOEXEC)};
    if (!fd)
        return log_error_as(caller, DDAL_ERR_FAILURE, "Cannot open file %s (%m)\n", path);
    if (!core::moves_whole(sizeof(uint16_t), [&] { return move(fd.get()); }))
        return log_error_as(caller, DDAL_ERR_FAILURE, "Unable to %s %s (%m)\n", call, path);
    if (fd.close() != 0)
        return log_error_as(caller, DDAL_ERR_FAILURE, "Unable to close %s (%m)\n", path);
    return 0;
}

// Passes an access to the Broadcom switch on the MBO board, and to the interface's PHY on any other board.
template <typename BySwitch, typename Direct>
int access(const char *caller, uint32_t phy_dev, const char *verb, bool data_missing, BySwitch by_switch, Direct direct)
{
    const identity::Board &board = identity::this_board();
    if (!board.phys)
        return -ENOSYS;
    if (data_missing)
        return log_error_as(caller, DDAL_ERR_FAILURE, "data is NULL\n");
    if (!board.broadcom_switch) {
        Interface found{};
        const int rc = find_interface(caller, phy_dev, &found);
        return rc != 0 ? rc : direct(found.dev_id);
    }
    ddal_phy_association association{};
    if (ddal_phy_get_association(phy_dev, &association) != 0 ||
        by_switch(static_cast<uint32_t>(association.switch_port)) != 0)
        return log_error_as(caller, DDAL_ERR_FAILURE, "MBO board %s PHY error: %d\n", verb, static_cast<int>(phy_dev));
    return 0;
}

} // namespace

int change_register(uint32_t phy_dev, uint32_t reg, uint16_t keep, uint16_t set)
{
    uint16_t data = 0;
    const int rc = ddal_phy_read(phy_dev, reg, 0, &data);
    return rc != 0 ? rc : ddal_phy_write(phy_dev, reg, 0, static_cast<uint16_t>((data & keep) | set));
}

} // namespace ddal::phy

using namespace ddal::phy;

int ddal_phy_read_direct(uint32_t dev_id, uint32_t reg, uint32_t page, uint16_t *data)
{
    return transfer(__func__, dev_id, O_RDONLY, "pread",
                    [=](int fd) { return pread(fd, data, sizeof *data, offset_of(reg, page)); });
}

int ddal_phy_write_direct(uint32_t dev_id, uint32_t reg, uint32_t page, uint16_t value)
{
    return transfer(__func__, dev_id, O_WRONLY, "pwrite",
                    [&](int fd) { return pwrite(fd, &value, sizeof value, offset_of(reg, page)); });
}

int ddal_phy_read(uint32_t phy_dev, uint32_t reg, uint32_t page, uint16_t *data)
{
    return access(
        __func__, phy_dev, "read", !data,
        [=](uint32_t port) { return ddal_bcm_read_ext_phy_register(port, reg, data); },
        [=](uint32_t dev_id) { return ddal_phy_read_direct(dev_id, reg, page, data); });
}

int ddal_phy_write(uint32_t phy_dev, uint32_t reg, uint32_t page, uint16_t value)
{
    return access(
        __func__, phy_dev, "write", false,
        [=](uint32_t port) { return ddal_bcm_write_ext_phy_register(port, reg, value); },
        [=](uint32_t dev_id) { return ddal_phy_write_direct(dev_id, reg, page, value); });
}

int ddal_phy_copper_get_expansion_reg(uint32_t phy_dev, uint16_t *value)
{
    return ddal_phy_read(phy_dev, kExpansion, 0, value);
}
