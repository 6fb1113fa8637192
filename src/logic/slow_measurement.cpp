// The periodic slow measurement report. Its driver announces it, and registers of the main FPGA hold it.
#include <ddal/rf_fpga.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/ioctl.h>

#include <ddal/fpga.h>

#include "core/log.h"
#include "core/transfer.h"
#include "core/unique_fd.h"
#include "logic/fpga_driver.h"
#include "logic/rf_fpga.h"
#include "logic/rf_fpga_driver.h"

using ddal::core::UniqueFd;
using namespace ddal::logic;

struct ddal_rf_fpga_slow_meas {
    uint32_t magic;
    int32_t smr_fd;
    int32_t usr_fd;
};
static_assert(sizeof(ddal_rf_fpga_slow_meas) == 12);

namespace {

constexpr uint32_t kMagic = 0xFEEDFACE;
constexpr int kVersionRead = 1; // success value of ddal_fpga_get_version

// A board keeps its type of FPGA: once a C5 was seen, its address table stays in use for the life of the process.
std::atomic<bool> c5_seen{false};

int check_descriptor_as(const char *caller, const ddal_rf_fpga_slow_meas *desc)
{
    if (!desc)
        return log_error_as(caller, -EINVAL, "Null descriptor.\n");
    if (desc->magic != kMagic)
        return log_error_as(caller, -ENODEV, "Invalid Descriptor. magic: %u, expected %u\n", desc->magic, kMagic);
    return 0;
}

int read_block(int fd, uint32_t address, uint8_t *block)
{
    return static_cast<int>(ddal_common_pread_all(fd, block, kSlowMeasBlock, address));
}

} // namespace

namespace ddal::logic {

int check_if_board_is_with_c5(int *with_c5)
{
    uint32_t version = 0;
    errno = 0; // a short register read does not set errno
    if (ddal_fpga_get_version(&version) != kVersionRead)
        return log_error(DDAL_ERR_FAILURE, "Getting fpga version error %m\n");
    *with_c5 = (version & kC5Version) == kC5Version;
    return 0;
}

} // namespace ddal::logic

int ddal_rf_fpga_slow_meas_report_open(struct ddal_rf_fpga_slow_meas **out, uint32_t period_ms)
{
    if (!out)
        return log_error(-EINVAL, "Null descriptor.\n");

    UniqueFd smr{open(kSlowMeasNode, O_RDONLY | O_CLOEXEC)};
    if (!smr)
        return log_errno("can't open device fpga_smr: %m\n");
    UniqueFd usr{open(kFpgaNode, O_RDWR | O_CLOEXEC)};
    if (!usr)
        return log_errno("can't open device fpga_usr: %m\n");

    std::unique_ptr<ddal_rf_fpga_slow_meas, decltype(&free)> desc{
        static_cast<ddal_rf_fpga_slow_meas *>(malloc(sizeof(ddal_rf_fpga_slow_meas))), free};
    if (!desc)
        return log_error(-ENOMEM, "can't allocate memory for internal descriptor: %m\n");
    *desc = {kMagic, smr.get(), usr.get()};

    const int result = ddal_rf_fpga_slow_meas_report_set_period(desc.get(), period_ms);
    if (result != 0)
        return log_error(result, "unable to write period to fpga: %m\n");

    smr.release();
    usr.release();
    *out = desc.release();
    return 0;
}

int ddal_rf_fpga_slow_meas_report_set_period(struct ddal_rf_fpga_slow_meas *desc, uint32_t period_ms)
{
    int with_c5;
    if (check_if_board_is_with_c5(&with_c5) != 0)
        return log_error(DDAL_ERR_FAILURE, "Error checking board\n");
    if (with_c5) { // kept: comes before every check of the arguments
        log_line(LOG_INFO, "Function executed but set nothing because the board is with C5 FPGA\n");
        return 0;
    }

    if (const int result = check_descriptor_as(__func__, desc); result != 0)
        return result;
    if (period_ms == 0 || period_ms > kSlowMeasPeriodMax || period_ms % kSlowMeasPeriodUnit != 0)
        return log_error(-EINVAL, "period not valid: %u, expect 100,200,...,1000.\n", period_ms);

    const uint32_t units = period_ms / kSlowMeasPeriodUnit;
    const ssize_t n = ddal_common_pwrite_all(desc->usr_fd, &units, sizeof units, kSlowMeasPeriod);
    if (n < 0)
        return log_errno("fpga write failed: %m\n");
    if (n != sizeof units)
        return log_error(DDAL_ERR_FAILURE, "fpga driver returned unexpected len on fpga_usr_write\n");
    return 0;
}

int ddal_rf_fpga_slow_meas_report_wait(struct ddal_rf_fpga_slow_meas *desc, uint8_t buf[64])
{
    if (!buf)
        return log_error(-EINVAL, "slow_measurement_report buffer is NULL\n");
    if (const int result = check_descriptor_as(__func__, desc); result != 0)
        return result;

    int with_c5;
    if (check_if_board_is_with_c5(&with_c5) != 0)
        return log_error(DDAL_ERR_FAILURE, "Error checking board\n");
    if (with_c5)
        c5_seen.store(true, std::memory_order_relaxed);

    uint32_t index = 0;
    int waited = ioctl(desc->smr_fd, kSlowMeasWait, &index);
    if (waited >= 0 && index >= kSlowMeasBuffers) {
        errno = ERANGE;
        waited = -1;
    }
    if (waited < 0)
        return log_error(DDAL_ERR_FAILURE, "ioctl failed: %m\n");

    const auto &second = c5_seen.load(std::memory_order_relaxed) ? kSlowMeasSecondBlockC5 : kSlowMeasSecondBlock;
    if (read_block(desc->usr_fd, kSlowMeasFirstBlock[index], buf) < 0)
        log_line(LOG_ERR, "fpga read failed: %m\n"); // kept: only the second block decides
    const int n = read_block(desc->usr_fd, second[index], buf + kSlowMeasBlock);
    if (n < 0)
        return log_error(DDAL_ERR_FAILURE, "fpga read failed: %m\n");
    return n;
}

int ddal_rf_fpga_slow_meas_report_close(struct ddal_rf_fpga_slow_meas *desc)
{
    if (const int result = check_descriptor_as(__func__, desc); result != 0)
        return result;
    close(desc->smr_fd);
    close(desc->usr_fd);
    desc->magic = 0;
    free(desc);
    return 0;
}
