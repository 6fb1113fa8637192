#include "phy/registers.h"

#include <ddal/bcm.h>
#include <ddal/phy.h>
#include <ddal/unit.h>

#include <cerrno>
#include <fcntl.h>

#include "core/log.h"
#include "core/unique_fd.h"
#include "phy/route.h"

using ddal::core::UniqueFd;

namespace ddal::phy {

namespace {

constexpr int kBoardWithTwoBuses = 4;

struct RegsNode {
    bool two_buses; // board type 4
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

// A register is two bytes at its place in its page's part of the node.
off_t offset_of(uint32_t reg, uint32_t page)
{
    return static_cast<off_t>(uint64_t{reg} * 2 | uint64_t{page} << 16);
}

// A register moves in one request of two bytes: two halves, taken at two moments, are not a value that it ever had.
template <typename Transfer>
bool moves_whole(Transfer transfer)
{
    ssize_t n = 0;
    do {
        errno = 0; // a short transfer leaves it
        n = transfer();
    } while (n < 0 && errno == EINTR);
    return n == sizeof(uint16_t);
}

} // namespace

int get_phy_regs_filename(uint32_t dev_id, const char **filename)
{
    const bool two_buses = ddal_unit_get_board() == kBoardWithTwoBuses;
    for (const RegsNode &node : kRegsNodes) {
        if (node.two_buses == two_buses && node.dev_id == dev_id) {
            *filename = node.path;
            return 0;
        }
    }
    return log_error(DDAL_ERR_FAILURE, "cannot match phy_regs node to interface dev_id %d\n", static_cast<int>(dev_id));
}

int change_register(uint32_t phy_dev, uint32_t reg, uint16_t keep, uint16_t set)
{
    uint16_t data = 0;
    const int rc = ddal_phy_read(phy_dev, reg, 0, &data);
    return rc != 0 ? rc : ddal_phy_write(phy_dev, reg, 0, static_cast<uint16_t>((data & keep) | set));
}

namespace {

// The port of the Broadcom switch behind a PHY device of the MBO board. 0 or the association's code.
int find_switch_port(uint32_t phy_dev, uint32_t *port)
{
    ddal_phy_association association{};
    const int rc = ddal_phy_get_association(phy_dev, &association);
    *port = static_cast<uint32_t>(association.switch_port);
    return rc;
}

} // namespace

} // namespace ddal::phy

using namespace ddal::phy;

int ddal_phy_read_direct(uint32_t dev_id, uint32_t reg, uint32_t page, uint16_t *data)
{
    const char *path = nullptr;
    if (get_phy_regs_filename(dev_id, &path) != 0)
        return DDAL_ERR_FAILURE;
    UniqueFd fd{open(path, O_RDONLY | O_CLOEXEC)};
    if (!fd)
        return log_error(DDAL_ERR_FAILURE, "Cannot open file %s (%m)\n", path);
    if (!moves_whole([&] { return pread(fd.get(), data, sizeof *data, offset_of(reg, page)); }))
        return log_error(DDAL_ERR_FAILURE, "Unable to pread %s (%m)\n", path);
    if (fd.close() != 0)
        return log_error(DDAL_ERR_FAILURE, "Unable to close %s (%m)\n", path);
    return 0;
}

int ddal_phy_write_direct(uint32_t dev_id, uint32_t reg, uint32_t page, uint16_t value)
{
    const char *path = nullptr;
    if (get_phy_regs_filename(dev_id, &path) != 0)
        return DDAL_ERR_FAILURE;
    UniqueFd fd{open(path, O_WRONLY | O_CLOEXEC)};
    if (!fd)
        return log_error(DDAL_ERR_FAILURE, "Cannot open file %s (%m)\n", path);
    if (!moves_whole([&] { return pwrite(fd.get(), &value, sizeof value, offset_of(reg, page)); }))
        return log_error(DDAL_ERR_FAILURE, "Unable to pwrite %s (%m)\n", path);
    if (fd.close() != 0)
        return log_error(DDAL_ERR_FAILURE, "Unable to close %s (%m)\n", path);
    return 0;
}

int ddal_phy_read(uint32_t phy_dev, uint32_t reg, uint32_t page, uint16_t *data)
{
    using namespace ddal::phy;

    const int board = ddal_unit_get_board();
    if (board == kBoardWithoutPhys)
        return -ENOSYS;
    if (!data)
        return log_error(DDAL_ERR_FAILURE, "data is NULL\n");
    if (board == kMboBoard) {
        uint32_t port = 0;
        if (find_switch_port(phy_dev, &port) != 0 || ddal_bcm_read_ext_phy_register(port, reg, data) != 0)
            return log_error(DDAL_ERR_FAILURE, "MBO board read PHY error: %d\n", static_cast<int>(phy_dev));
        return 0;
    }

    Interface interface {
    };
    const int rc = find_interface(__func__, phy_dev, &interface);
    return rc != 0 ? rc : ddal_phy_read_direct(interface.dev_id, reg, page, data);
}

int ddal_phy_write(uint32_t phy_dev, uint32_t reg, uint32_t page, uint16_t value)
{
    using namespace ddal::phy;

    const int board = ddal_unit_get_board();
    if (board == kBoardWithoutPhys)
        return -ENOSYS;
    if (board == kMboBoard) {
        uint32_t port = 0;
        if (find_switch_port(phy_dev, &port) != 0 || ddal_bcm_write_ext_phy_register(port, reg, value) != 0)
            return log_error(DDAL_ERR_FAILURE, "MBO board write PHY error: %d\n", static_cast<int>(phy_dev));
        return 0;
    }

    Interface interface {
    };
    const int rc = find_interface(__func__, phy_dev, &interface);
    return rc != 0 ? rc : ddal_phy_write_direct(interface.dev_id, reg, page, value);
}

int ddal_phy_copper_get_expansion_reg(uint32_t phy_dev, uint16_t *value)
{
    return ddal_phy_read(phy_dev, ddal::phy::kExpansion, 0, value);
}
