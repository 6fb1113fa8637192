// The external multiport switch, locked for one use.
#pragma once

#include <cstdint>
#include <optional>

#include "core/device_lock.h"
#include "core/unique_fd.h"
#include "switch/external/mdio.h"
#include "switch/external/place.h"
#include "switch/external/registers.h"

namespace ddal::external {

// The switch answers through command and data registers that all processes share, so that every use holds the lock file
// of the board from open() to the end of the object. A process that dies leaves no lock. It may leave a command that
// runs and a page that is selected: every command first waits for the one before it, and every use of a PHY selects its
// page.
//
// The operations return 0 or DDAL_ERR_FAILURE after one line under the caller's name.
class Chip {
public:
    explicit Chip(const char *caller) : caller_(caller) {}

    // Reports whether this process has recognised the switch.
    static bool is_known();

    // Locks the switch, and recognises it at the first use of the process. Returns -ENOSYS when this board is not known
    // to have the switch and it does not answer; that is logged only if `loud`.
    int open(bool loud);

    // A register of a port or of the whole switch.
    int read(uint32_t device, uint32_t reg, uint16_t *value);
    int write(uint32_t device, uint32_t reg, uint16_t value);
    // Waits until the command register is idle, issues a command and waits for its end.
    int run(uint32_t device, uint32_t reg, uint16_t command);
    // Waits until a bit of a register is clear, for at most 100 polls.
    int wait_clear(uint32_t device, uint32_t reg, uint16_t bit);

    // A register of a port's PHY. Leaves page 0 selected.
    int read_phy(uint32_t port, uint16_t page, uint32_t reg, uint16_t *value);
    int write_phy(uint32_t port, uint16_t page, uint32_t reg, uint16_t value);
    // Keeps the bits of `keep`, adds those of `set`.
    int change_phy(uint32_t port, uint16_t page, uint32_t reg, uint16_t keep, uint16_t set);
    // Resets a PHY, which keeps its settings and applies those that wait for a reset. Waits for the end.
    int reset_phy(uint32_t port);

    // Calls `access` with a page selected. Selects page 0 again, also after a failure.
    template <typename Access>
    int on_page(uint32_t port, uint16_t page, Access access)
    {
        int rc = write_register(port, kPageSelect, page);
        if (rc == 0)
            rc = access();
        return page == 0 ? rc : leave_page(port, rc);
    }
    // A register of the selected page.
    int read_register(uint32_t port, uint32_t reg, uint16_t *value);
    int write_register(uint32_t port, uint32_t reg, uint16_t value);

private:
    int lock();
    int recognise();
    int leave_page(uint32_t port, int rc);
    int await_shared_idle();
    int bus_read(uint32_t address, uint32_t reg, uint16_t *value);
    int bus_write(uint32_t address, uint32_t reg, uint16_t value);
    int fail(const char *verb, uint32_t address, uint32_t reg, int error) const;

    const char *caller_;
    bool quiet_ = false;
    uint8_t strap_ = kSingleChip;
    Mdio *mdio_ = nullptr;
    std::optional<NodeMdio> nodes_;
    std::optional<InterfaceMdio> interface_;
    core::UniqueFd lock_file_;
    std::optional<core::DeviceLock> lock_; // released before its file
};

// The ports with a PHY. Returns 0, or -EINVAL after a line.
int check_phy_port(const char *caller, uint32_t port);

// Calls `work` with the switch locked, for a port with a PHY.
template <typename Work>
int with_phy(const char *caller, uint32_t port, Work work)
{
    int rc = check_phy_port(caller, port);
    if (rc != 0)
        return rc;
    Chip chip{caller};
    rc = chip.open(true);
    return rc != 0 ? rc : work(chip);
}

} // namespace ddal::external
