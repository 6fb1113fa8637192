// Registers of the CPLD.
#include <ddal/cpld.h>

#include <cerrno>
#include <fcntl.h>

#include "core/log.h"
#include "core/transfer.h"
#include "core/unique_fd.h"
#include "logic/cpld_driver.h"

using ddal::core::UniqueFd;
using namespace ddal::logic;

int ddal_cpld_read(uint32_t address, uint8_t *value)
{
    if (address % kCpldRegisterAlignment != 0)
        return log_error(-EINVAL, "invalid CPLD address alignment: 0x%x\n", address);

    const UniqueFd fd{open(kCpldNode, O_RDWR | O_CLOEXEC)};
    if (!fd)
        return log_errno("can't open device cpld: %m\n");

    const ssize_t n = ddal_common_pread_all(fd.get(), value, sizeof *value, address);
    if (n >= 0)
        errno = 0; // an interrupted and continued read leaves EINTR behind
    if (n != sizeof *value)
        return log_errno_or(-EFAULT, "pread failed: %m\n");
    return 0;
}

int ddal_cpld_write(uint32_t address, uint32_t value)
{
    if (address % kCpldRegisterAlignment != 0)
        return log_error(-EINVAL, "invalid CPLD address alignment: 0x%x\n", address);
    if (value > kCpldRegisterMax)
        return log_error(-EINVAL, "CPLD register 0x%x out of range: 0x%x\n", address, value);

    const UniqueFd fd{open(kCpldNode, O_RDWR | O_CLOEXEC)};
    if (!fd)
        return log_errno("can't open device cpld: %m\n");

    const auto byte = static_cast<uint8_t>(value);
    const ssize_t n = ddal_common_pwrite_all(fd.get(), &byte, sizeof byte, address);
    if (n >= 0)
        errno = 0;
    if (n != sizeof byte)
        return log_errno_or(-EFAULT, "pwrite failed: %m\n");
    return 0;
}
