// Registers of the digital front end.
#include <ddal/dfe.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>

#include "core/device_lock.h"
#include "core/log.h"
#include "core/transfer.h"
#include "core/unique_fd.h"
#include "logic/dfe_driver.h"

using ddal::core::DeviceLock;
using ddal::core::UniqueFd;
using namespace ddal::logic;

namespace {

using Block = uint8_t __attribute__((vector_size(16)));

// Replaces the bits of `bytes` that are set in `mask` by those of `value`.
void merge(uint8_t *bytes, const uint8_t *value, const uint8_t *mask, size_t len)
{
    size_t i = 0;
    for (; len - i >= sizeof(Block); i += sizeof(Block)) {
        Block old_bits, new_bits, mask_bits;
        memcpy(&old_bits, bytes + i, sizeof old_bits);
        memcpy(&new_bits, value + i, sizeof new_bits);
        memcpy(&mask_bits, mask + i, sizeof mask_bits);
        old_bits = (old_bits & ~mask_bits) | (new_bits & mask_bits);
        memcpy(bytes + i, &old_bits, sizeof old_bits);
    }
    for (; i < len; i++)
        bytes[i] = static_cast<uint8_t>((bytes[i] & ~mask[i]) | (value[i] & mask[i]));
}

// Opens and locks the device, and calls `move` to transfer `len` bytes. `verb` names the transfer in the log.
template <typename Move>
int transfer(const char *caller, int flags, const char *verb, size_t len, Move move)
{
    const UniqueFd fd{open(kDfeNode, flags | O_CLOEXEC)};
    if (!fd)
        return log_errno_as(caller, "can't open device dfe: %m\n");
    const DeviceLock lock{fd.get()};
    if (!lock)
        return ddal::core::minus_errno();

    const ssize_t n = move(fd.get());
    if (n < 0)
        return log_errno_as(caller, "dfe %s failed: %m\n", verb);
    if (static_cast<size_t>(n) != len)
        return log_error_as(caller, DDAL_ERR_FAILURE, "dfe driver returned unexpected len on dfe_%s: %d\n", verb,
                            static_cast<int>(n));
    return 0;
}

} // namespace

int ddal_dfe_read(int chip, uint32_t address, void *buf, size_t len)
{
    if (chip != DDAL_DFE_CHIP_ID0)
        return log_error(-ENODEV, "FWQA supports only DDAL_DFE_CHIP_ID0\n");
    if (len == 0) // kept: the chip is checked first here, last in the write
        return 0;
    return transfer(__func__, O_RDONLY, "read", len,
                    [=](int fd) { return ddal_common_pread_all(fd, buf, len, address); });
}

int ddal_dfe_write(int chip, uint32_t address, const void *buf, size_t len)
{
    if (len == 0)
        return 0;
    if (chip != DDAL_DFE_CHIP_ID0)
        return log_error(-ENODEV, "FWQA supports only DDAL_DFE_CHIP_ID0\n");
    return transfer(__func__, O_RDWR, "write", len,
                    [=](int fd) { return ddal_common_pwrite_all(fd, buf, len, address); });
}

int ddal_dfe_masked_write(int chip, uint32_t address, const void *value, const void *mask, size_t len)
{
    const std::unique_ptr<uint8_t, decltype(&free)> scratch{static_cast<uint8_t *>(malloc(len != 0 ? len : 1)), free};
    if (!scratch)
        return log_error(-ENOMEM, "Unable to allocate memory: %m\n");

    int result = ddal_dfe_read(chip, address, scratch.get(), len);
    if (result != 0)
        return log_error(result, "Failure during reading current value of %x\n", address);

    merge(scratch.get(), static_cast<const uint8_t *>(value), static_cast<const uint8_t *>(mask), len);

    result = ddal_dfe_write(DDAL_DFE_CHIP_ID0, address, scratch.get(), len);
    return log_failure(result, "Failure during writing new value to %x\n", address);
}
