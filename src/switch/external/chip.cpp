#include "switch/external/chip.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iterator>

#include "core/log.h"

namespace ddal::external {

namespace {

constexpr const char *kLockFile = "/run/ddal-multiport.lock";
constexpr mode_t kLockMode = 0600;
constexpr int kPolls = 100;

// The place where this process has recognised the switch. A switch does not leave its board.
std::atomic<uint32_t> recognised{0};
constexpr uint32_t kKnown = 1u << 24;

uint32_t packed(const Place &place)
{
    return kKnown | static_cast<uint32_t>(place.way) << 16 | static_cast<uint32_t>(place.interface) << 8 | place.strap;
}

Place unpacked(uint32_t word)
{
    return {static_cast<Way>(word >> 16 & 0xFF), static_cast<uint8_t>(word), static_cast<uint8_t>(word >> 8), true};
}

uint16_t command_of(uint16_t command, uint32_t device, uint32_t reg)
{
    return static_cast<uint16_t>(command | device << 5 | reg);
}

} // namespace

int check_phy_port(const char *caller, uint32_t port)
{
    if (port < kFirstPhy || port > kLastPhy)
        return log_error_as(caller, -EINVAL, "port %u of the multiport switch is without a PHY\n", port);
    return 0;
}

bool Chip::is_known()
{
    return recognised != 0;
}

int Chip::open(bool loud)
{
    Place place{};
    const uint32_t known = recognised;
    if (known != 0)
        place = unpacked(known);
    else if (const int rc = find_place(caller_, &place))
        return rc;
    quiet_ = !loud && !place.is_stored;
    strap_ = place.strap;
    if (place.way == Way::kNodes)
        mdio_ = &nodes_.emplace(bus_name());
    else
        mdio_ = &interface_.emplace(place.interface);
    int rc = lock();
    if (rc != 0 || known != 0)
        return rc;
    rc = recognise();
    if (rc != 0)
        return place.is_stored ? rc : -ENOSYS;
    recognised = packed(place);
    return 0;
}

int Chip::lock()
{
    lock_file_.reset(::open(kLockFile, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kLockMode));
    if (lock_file_ && lock_.emplace(lock_file_.get()))
        return 0;
    if (!quiet_)
        log_line_as(LOG_ERR, caller_, "can't lock %s: %m\n", kLockFile);
    return DDAL_ERR_FAILURE;
}

int Chip::recognise()
{
    uint16_t identifier = 0;
    const int rc = read(kPort0 + kFirstPhy, kPortIdentifier, &identifier);
    if (rc != 0)
        return rc;
    if (std::find(std::begin(kProducts), std::end(kProducts), identifier >> 4) != std::end(kProducts))
        return 0;
    if (!quiet_)
        log_line_as(LOG_ERR, caller_, "not a multiport switch of this board: identifier 0x%04x\n", identifier);
    return DDAL_ERR_FAILURE;
}

int Chip::fail(const char *verb, uint32_t address, uint32_t reg, int error) const
{
    if (!quiet_)
        log_line_as(LOG_ERR, caller_, "can't %s register %u of MDIO device 0x%02x: %s\n", verb, reg, address,
                    strerror(-error));
    return DDAL_ERR_FAILURE;
}

int Chip::bus_read(uint32_t address, uint32_t reg, uint16_t *value)
{
    const int rc = mdio_->read(address, reg, value);
    return rc == 0 ? 0 : fail("read", address, reg, rc);
}

int Chip::bus_write(uint32_t address, uint32_t reg, uint16_t value)
{
    const int rc = mdio_->write(address, reg, value);
    return rc == 0 ? 0 : fail("write", address, reg, rc);
}

int Chip::await_shared_idle()
{
    uint16_t command = kBusy;
    for (int i = 0; i < kPolls && command & kBusy; i++) {
        const int rc = bus_read(strap_, kSharedCommand, &command);
        if (rc != 0)
            return rc;
    }
    return command & kBusy ? fail("use", strap_, kSharedCommand, -ETIMEDOUT) : 0;
}

int Chip::read(uint32_t device, uint32_t reg, uint16_t *value)
{
    if (strap_ == kSingleChip)
        return bus_read(device, reg, value);
    int rc = await_shared_idle();
    if (rc == 0)
        rc = bus_write(strap_, kSharedCommand, command_of(kSharedRead, device, reg));
    if (rc == 0)
        rc = await_shared_idle();
    return rc != 0 ? rc : bus_read(strap_, kSharedData, value);
}

int Chip::write(uint32_t device, uint32_t reg, uint16_t value)
{
    if (strap_ == kSingleChip)
        return bus_write(device, reg, value);
    int rc = await_shared_idle();
    if (rc == 0)
        rc = bus_write(strap_, kSharedData, value);
    if (rc == 0)
        rc = bus_write(strap_, kSharedCommand, command_of(kSharedWrite, device, reg));
    return rc != 0 ? rc : await_shared_idle();
}

int Chip::wait_clear(uint32_t device, uint32_t reg, uint16_t bit)
{
    for (int i = 0; i < kPolls; i++) {
        uint16_t value = 0;
        const int rc = read(device, reg, &value);
        if (rc != 0 || !(value & bit))
            return rc;
    }
    return fail("wait for", device, reg, -ETIMEDOUT);
}

int Chip::run(uint32_t device, uint32_t reg, uint16_t command)
{
    int rc = wait_clear(device, reg, kBusy);
    if (rc == 0)
        rc = write(device, reg, command);
    return rc != 0 ? rc : wait_clear(device, reg, kBusy);
}

int Chip::read_register(uint32_t port, uint32_t reg, uint16_t *value)
{
    const int rc = run(kGlobal2, kPhyCommand, command_of(kPhyRead, port, reg));
    return rc != 0 ? rc : read(kGlobal2, kPhyData, value);
}

int Chip::write_register(uint32_t port, uint32_t reg, uint16_t value)
{
    int rc = wait_clear(kGlobal2, kPhyCommand, kBusy); // a command that runs may still use the data register
    if (rc == 0)
        rc = write(kGlobal2, kPhyData, value);
    if (rc == 0)
        rc = write(kGlobal2, kPhyCommand, command_of(kPhyWrite, port, reg));
    return rc != 0 ? rc : wait_clear(kGlobal2, kPhyCommand, kBusy);
}

int Chip::leave_page(uint32_t port, int rc)
{
    const bool quiet = quiet_;
    quiet_ = quiet || rc != 0; // the first failure has its line
    const int left = write_register(port, kPageSelect, kCopperPage);
    quiet_ = quiet;
    return rc != 0 ? rc : left;
}

int Chip::read_phy(uint32_t port, uint16_t page, uint32_t reg, uint16_t *value)
{
    return on_page(port, page, [&] { return read_register(port, reg, value); });
}

int Chip::write_phy(uint32_t port, uint16_t page, uint32_t reg, uint16_t value)
{
    return on_page(port, page, [&] { return write_register(port, reg, value); });
}

int Chip::change_phy(uint32_t port, uint16_t page, uint32_t reg, uint16_t keep, uint16_t set)
{
    return on_page(port, page, [&] {
        uint16_t value = 0;
        const int rc = read_register(port, reg, &value);
        return rc != 0 ? rc : write_register(port, reg, static_cast<uint16_t>((value & keep) | set));
    });
}

int Chip::reset_phy(uint32_t port)
{
    int rc = change_phy(port, kCopperPage, kControl, 0xFFFF, kReset);
    for (int i = 0; i < kPolls && rc == 0; i++) {
        uint16_t control = 0;
        rc = read_register(port, kControl, &control);
        if (rc == 0 && !(control & kReset))
            return 0;
    }
    return rc != 0 ? rc : fail("reset the PHY by", port, kControl, -ETIMEDOUT);
}

} // namespace ddal::external
