#include "daemon/models/rf_fpga.h"

#include <cerrno>
#include <cstring>

#include "logic/fpga_driver.h"
#include "logic/rf_fpga_driver.h"

namespace vboard {

using namespace ddal::logic;

std::vector<IoctlForm> SpiRegisters::ioctls(const Node &) const
{
    std::vector<IoctlForm> forms;
    for (const uint32_t request : {kFpgaRegRead, kFpgaRegWrite, kFpgaRegMaskedWrite})
        forms.push_back({0, request, sizeof(FpgaRegRequest), 0});
    return forms;
}

void SpiRegisters::ioctl(const Node &, uint32_t request, Bytes argument, Answer answer)
{
    FpgaRegRequest record;
    if (argument.size() != sizeof record) {
        answer.fail(EFAULT);
        return;
    }
    std::memcpy(&record, argument.data(), sizeof record);
    if (record.address >= size() || record.value > kSpiRegisterMax) {
        answer.fail(EINVAL);
        return;
    }
    const uint32_t old = get(record.address);
    switch (request) {
    case kFpgaRegRead: record.value = old; break;
    case kFpgaRegWrite: set(record.address, static_cast<uint8_t>(record.value)); break;
    case kFpgaRegMaskedWrite:
        set(record.address, static_cast<uint8_t>((old & ~record.mask) | (record.value & record.mask)));
        break;
    default: answer.fail(ENOTTY); return;
    }
    answer.reply_with(0, record);
}

} // namespace vboard
