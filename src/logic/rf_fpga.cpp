// Registers of the RF FPGAs: one-shot calls, and calls on a device that the caller keeps open.
#include <ddal/rf_fpga.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/ioctl.h>

#include "core/log.h"
#include "core/transfer.h"
#include "core/unique_fd.h"
#include "logic/fpga_driver.h"
#include "logic/rf_fpga_driver.h"

using ddal::core::UniqueFd;
using namespace ddal::logic;

namespace {

class NodeName {
public:
    explicit NodeName(uint32_t devid) { snprintf(text_, sizeof text_, kRfFpgaNodeFormat, devid); }
    const char *get() const { return text_; }

private:
    char text_[kNodeNameSize];
};

bool is_aligned(uint32_t address)
{
    return address % kFpgaRegisterAlignment == 0;
}

int words_of(ssize_t bytes)
{
    return static_cast<int>(bytes / static_cast<ssize_t>(sizeof(uint32_t)));
}

bool is_behind_spi(uint32_t devid)
{
    return devid >= 1 && devid <= kRfFpgaLastDevice;
}

// Passes one request to a device. Logs under the name of the public operation.
int request(const char *caller, uint32_t devid, int flags, uint32_t number, FpgaRegRequest *record)
{
    const NodeName node{devid};
    const UniqueFd fd{open(node.get(), flags | O_CLOEXEC)};
    if (!fd)
        return log_errno_as(caller, "can't open device %s: %m\n", node.get());
    errno = 0;
    if (ioctl(fd.get(), number, record) != 0)
        return log_errno_as(caller, "ioctl failed: %m\n");
    return 0;
}

int write_bit(uint32_t address, uint32_t bit, bool set, uint32_t devid)
{
    if (bit > 31 || (is_behind_spi(devid) && bit >= kSpiRegisterBits))
        return -EFAULT;
    const uint32_t mask = UINT32_C(1) << bit;
    return ddal_rf_fpga_masked_write(address, mask, set ? mask : 0, devid);
}

int lock(int fd, int operation)
{
    int result;
    do
        result = flock(fd, operation);
    while (result != 0 && errno == EINTR);
    if (result != 0)
        ddal::core::note_access(fd);
    return result;
}

// Reads, modifies and writes the block. The caller holds the lock.
int rewrite_block(int fd, uint32_t address, uint8_t *block, uint32_t len, const uint8_t *clear, const uint8_t *set)
{
    int n = ddal_rf_fpga_read_fd(fd, address, len, block);
    if (n < 0)
        return n;
    if (static_cast<uint32_t>(n) != len)
        return -ENOSPC;

    for (uint32_t i = 0; i < len; i++)
        block[i] = static_cast<uint8_t>((block[i] & ~clear[i]) | set[i]);

    n = ddal_rf_fpga_write_fd(fd, address, len, block);
    if (n >= 0 && static_cast<uint32_t>(n) != len)
        return -ENOSPC;
    return n;
}

// Calls `move` to transfer registers of the main FPGA. `verb` names the transfer in the log. Returns the number of
// registers moved, or a negative code.
template <typename Move>
int transfer(const char *caller, uint32_t address, uint32_t count, int flags, const char *verb, Move move)
{
    if (count == 0)
        return 0;
    if (!is_aligned(address))
        return log_error_as(caller, -EFAULT, "fpga reg address is not aligned\n");
    const UniqueFd fd{open(kRfFpgaNode0, flags | O_CLOEXEC)};
    if (!fd)
        return log_errno_as(caller, "can't open device fpga_rf0: %m\n");
    const ssize_t n = move(fd.get(), size_t{count} * sizeof(uint32_t));
    return n < 0 ? log_errno_as(caller, "fpga %s failed: %m\n", verb) : words_of(n);
}

} // namespace

int ddal_rf_fpga_read(uint32_t address, uint32_t count, uint32_t *buf, uint32_t devid)
{
    if (devid != 0 && count == 0)
        return 0;
    if (devid != 0 && count != 1)
        return -EINVAL;
    if (!buf)
        return log_error(-EINVAL, "fpga read buffer is NULL\n");
    if (devid != 0) {
        FpgaRegRequest record{0, address, 0, 0};
        const int result = request(__func__, devid, O_RDONLY, kFpgaRegRead, &record);
        if (result != 0)
            return result;
        buf[0] = record.value;
        return 1;
    }
    return transfer(__func__, address, count, O_RDONLY, "read",
                    [=](int fd, size_t bytes) { return ddal_common_pread_all(fd, buf, bytes, address); });
}

int ddal_rf_fpga_write(uint32_t address, uint32_t count, const uint32_t *buf, uint32_t devid)
{
    if (devid != 0 && count == 0)
        return 0;
    if (devid != 0 && count != 1)
        return -EINVAL;
    if (!buf)
        return log_error(-EINVAL, "fpga write buffer is NULL\n");
    if (devid != 0) {
        if (buf[0] > kSpiRegisterMax)
            return log_error(-EINVAL, "data written to SPI %d overflow (max is 255)\n", static_cast<int>(devid));
        FpgaRegRequest record{0, address, 0, buf[0]};
        const int result = request(__func__, devid, O_RDWR, kFpgaRegWrite, &record);
        return result != 0 ? result : 1;
    }
    return transfer(__func__, address, count, O_RDWR, "write",
                    [=](int fd, size_t bytes) { return ddal_common_pwrite_all(fd, buf, bytes, address); });
}

int ddal_rf_fpga_get_version(uint32_t *version)
{
    return ddal_rf_fpga_read(kFpgaVersion, 1, version, 0);
}

int ddal_rf_fpga_masked_write(uint32_t address, uint32_t mask, uint32_t value, uint32_t devid)
{
    if (devid > kRfFpgaLastDevice)
        return log_error(-ENODEV, "invalid devid.\n");
    if (devid == 0 && !is_aligned(address))
        return -EFAULT;

    const NodeName node{devid};
    const UniqueFd fd{open(node.get(), O_RDWR | O_CLOEXEC)};
    if (!fd)
        return log_errno("can't open device %s: %m\n", node.get());
    FpgaRegRequest record{0, address, mask, value};
    if (ioctl(fd.get(), kFpgaRegMaskedWrite, &record) != 0)
        return log_error(DDAL_ERR_FAILURE, "ioctl failed: %m\n"); // kept: a fixed code instead of the errno
    return 0;
}

int ddal_rf_fpga_bit_set(uint32_t address, uint32_t bit, uint32_t devid)
{
    return write_bit(address, bit, true, devid);
}

int ddal_rf_fpga_bit_reset(uint32_t address, uint32_t bit, uint32_t devid)
{
    return write_bit(address, bit, false, devid);
}

int ddal_rf_fpga_open(uint32_t devid, int *fd)
{
    if (!fd)
        return -EINVAL;
    *fd = -1;
    if (devid > kRfFpgaLastDevice)
        return log_error(-ENODEV, "The device of id %u does not exist\n", devid);

    const NodeName node{devid};
    *fd = open(node.get(), O_RDWR | O_CLOEXEC);
    if (*fd < 0)
        return log_errno("can't open device %s: %m\n", node.get());
    return 0;
}

int ddal_rf_fpga_close(int fd)
{
    if (close(fd) != 0)
        return log_errno("The ddal_rf_fpga_close failed to close fd %d: %m\n", fd);
    return 0;
}

int ddal_rf_fpga_lock(int fd)
{
    if (lock(fd, LOCK_EX) != 0)
        return log_errno("The ddal_rf_fpga_lock failed to lock fd %d: %m\n", fd);
    return 0;
}

int ddal_rf_fpga_unlock(int fd)
{
    if (lock(fd, LOCK_UN) != 0)
        return log_errno("The ddal_rf_fpga_unlock failed to unlock fd %d: %m\n", fd);
    return 0;
}

int ddal_rf_fpga_read_fd(int fd, uint32_t address, uint32_t len, void *buf)
{
    if (!buf)
        return log_error(-EINVAL, "fpga read buffer is NULL\n");
    const ssize_t n = ddal_common_pread_all(fd, buf, len, address);
    if (n < 0)
        return log_errno("fpga read failed(fd %d): %m\n", fd);
    return static_cast<int>(n);
}

int ddal_rf_fpga_write_fd(int fd, uint32_t address, uint32_t len, const void *buf)
{
    if (!buf)
        return log_error(-EINVAL, "fpga write buffer is NULL\n");
    const ssize_t n = ddal_common_pwrite_all(fd, buf, len, address);
    if (n < 0)
        return log_errno("fpga write failed: %m\n");
    return static_cast<int>(n);
}

int ddal_rf_fpga_masked_write_fd(int fd, uint32_t address, uint32_t len, const uint8_t *clear, const uint8_t *set)
{
    if (len == 0)
        return 0;
    if (!clear || !set)
        return log_error(-EINVAL, "clear %p set %p\n", static_cast<const void *>(clear),
                         static_cast<const void *>(set));

    const std::unique_ptr<uint8_t, decltype(&free)> block{static_cast<uint8_t *>(malloc(len)), free};
    if (!block)
        return log_errno("malloc failed! len=%u %m\n", len);

    int result = ddal_rf_fpga_lock(fd);
    if (result != 0)
        return result;
    result = rewrite_block(fd, address, block.get(), len, clear, set);
    ddal_rf_fpga_unlock(fd);
    return result;
}
