// Registers of the main FPGA.
#include <ddal/fpga.h>
#include <ddal/rp3.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/ioctl.h>

#include "core/log.h"
#include "core/transfer.h"
#include "core/unique_fd.h"
#include "logic/fpga_driver.h"

using ddal::core::UniqueFd;
using namespace ddal::logic;

namespace {

constexpr int kTransferDone = 1; // kept: callers of the 32-bit register calls test for 1

} // namespace

int ddal_fpga_read(uint32_t address, uint32_t *value)
{
    if (!value)
        return log_error(-EINVAL, "fpga read buffer is NULL\n");
    if (address % kFpgaRegisterAlignment != 0)
        return log_error(-EFAULT, "fpga reg address is not aligned\n");

    const UniqueFd fd{open(kFpgaNode, O_RDONLY | O_CLOEXEC)};
    if (!fd)
        return log_errno("can't open device fpga_usr: %m\n");

    const ssize_t n = ddal_common_pread_all(fd.get(), value, sizeof *value, address);
    if (n < 0)
        return log_errno("fpga read failed: %m\n");
    if (n != sizeof *value)
        return log_error(DDAL_ERR_FAILURE, "fpga driver returned unexpected len on fpga_usr_read\n");
    return kTransferDone;
}

int ddal_fpga_write(uint32_t address, uint32_t value)
{
    if (address % kFpgaRegisterAlignment != 0)
        return log_error(-EFAULT, "fpga reg address is not aligned\n");

    const UniqueFd fd{open(kFpgaNode, O_RDWR | O_CLOEXEC)};
    if (!fd)
        return log_errno("can't open device fpga_usr: %m\n");

    const ssize_t n = ddal_common_pwrite_all(fd.get(), &value, sizeof value, address);
    if (n < 0)
        return log_errno("fpga write failed: %m\n");
    if (n != sizeof value)
        return log_error(DDAL_ERR_FAILURE, "fpga driver returned unexpected len on fpga_usr_write\n");
    return kTransferDone;
}

int ddal_fpga_masked_write(uint32_t address, uint32_t mask, uint32_t value)
{
    if (address % kFpgaRegisterAlignment != 0)
        return log_error(-EFAULT, "fpga reg address is not aligned\n");

    const UniqueFd fd{open(kFpgaNode, O_RDWR | O_CLOEXEC)};
    if (!fd)
        return log_errno("can't open device fpga_usr: %m\n");

    FpgaRegRequest request{.reserved = 0, .address = address, .mask = mask, .value = value};
    errno = 0;
    if (ioctl(fd.get(), kFpgaRegMaskedWrite, &request) != 0)
        return log_errno("ioctl failed: %m\n");
    return 0;
}

int ddal_fpga_get_version(uint32_t *version)
{
    return ddal_fpga_read(kFpgaVersion, version);
}

int ddal_fpga_wait_datapath_alarm(void)
{
    return DDAL_ERR_FAILURE;
}

int ddal_set_rp3_alarm_mask(uint32_t mask)
{
    return ddal_fpga_write(kFpgaRp3AlarmMask, mask) == kTransferDone ? 0 : DDAL_ERR_FAILURE;
}

int ddal_get_rp3_alarm_mask(uint32_t *mask)
{
    if (!mask)
        return DDAL_ERR_FAILURE;
    return ddal_fpga_read(kFpgaRp3AlarmMask, mask) == kTransferDone ? 0 : DDAL_ERR_FAILURE;
}
