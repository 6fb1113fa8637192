#include "daemon/models/registers.h"

#include <cerrno>
#include <cinttypes>
#include <cstring>

#include "logic/fpga_driver.h"

namespace vboard {

using namespace ddal::logic;

namespace {

constexpr uint64_t kAddressSpace = uint64_t{1} << 32;

std::string hex(uint64_t value, int digits)
{
    char text[32];
    snprintf(text, sizeof text, "0x%0*" PRIx64, digits, value);
    return text;
}

} // namespace

std::vector<IoctlForm> WordRegisters::ioctls(const Node &) const
{
    std::vector<IoctlForm> forms;
    for (const uint32_t request : {kFpgaRegRead, kFpgaRegWrite, kFpgaRegMaskedWrite})
        forms.push_back({0, request, sizeof(FpgaRegRequest), 0});
    return forms;
}

uint32_t WordRegisters::get(uint32_t address) const
{
    const auto hook = read_hooks_.find(address);
    if (hook != read_hooks_.end())
        return hook->second();
    const auto found = words_.find(address);
    return found == words_.end() ? 0 : found->second;
}

void WordRegisters::set(uint32_t address, uint32_t value)
{
    words_[address] = value;
}

void WordRegisters::store(uint32_t address, uint32_t value)
{
    set(address, value);
    const auto hook = write_hooks_.find(address);
    if (hook != write_hooks_.end())
        hook->second(value);
}

// A transfer may start and end inside a register: a caller goes on after a short one where it stopped.
int WordRegisters::read(const Node &, uint64_t offset, std::span<uint8_t> out)
{
    if (offset + out.size() > kAddressSpace)
        return 0;
    for (size_t i = 0; i < out.size();) {
        const auto at = static_cast<uint32_t>(offset + i);
        const uint32_t value = get(at & ~3u);
        for (uint32_t byte = at % 4; byte < 4 && i < out.size(); ++byte)
            out[i++] = static_cast<uint8_t>(value >> 8 * byte);
    }
    return static_cast<int>(out.size());
}

int WordRegisters::write(const Node &, uint64_t offset, std::span<const uint8_t> in)
{
    if (offset + in.size() > kAddressSpace)
        return -ENOSPC;
    for (size_t i = 0; i < in.size();) {
        const auto at = static_cast<uint32_t>(offset + i);
        uint32_t value = get(at & ~3u);
        for (uint32_t byte = at % 4; byte < 4 && i < in.size(); ++byte, ++i)
            value = (value & ~(0xFFu << 8 * byte)) | uint32_t{in[i]} << 8 * byte;
        store(at & ~3u, value);
    }
    return static_cast<int>(in.size());
}

void WordRegisters::ioctl(const Node &, uint32_t request, Bytes argument, Answer answer)
{
    FpgaRegRequest record;
    if (argument.size() != sizeof record) {
        answer.fail(EFAULT);
        return;
    }
    std::memcpy(&record, argument.data(), sizeof record);
    if (record.address % kFpgaRegisterAlignment != 0) {
        answer.fail(EINVAL);
        return;
    }
    const uint32_t old = get(record.address);
    switch (request) {
    case kFpgaRegRead: record.value = old; break;
    case kFpgaRegWrite: store(record.address, record.value); break;
    case kFpgaRegMaskedWrite: store(record.address, (old & ~record.mask) | (record.value & record.mask)); break;
    default: answer.fail(ENOTTY); return;
    }
    answer.reply_with(0, record);
}

ControlTable WordRegisters::commands()
{
    using Row = ControlRow<WordRegisters>;
    return {
        Row{"get ADDRESS", "print a register",
            [](const WordRegisters &registers, const Given &given) {
                return hex(registers.get(given.number("ADDRESS")), 8) + "\n";
            }},
        Row{"set ADDRESS VALUE", "change a register, as the hardware would",
            [](WordRegisters &registers, const Given &given) {
                registers.set(given.number("ADDRESS"), given.number("VALUE"));
            }},
        Row{"list", "print every register that was set or written",
            [](const WordRegisters &registers) {
                std::string list;
                for (const auto &[address, value] : registers.words_)
                    list += hex(address, 8) + " " + hex(value, 8) + "\n";
                return list;
            }},
    };
}

uint8_t ByteRegisters::get(uint64_t address) const
{
    const auto found = bytes_.find(address);
    return found == bytes_.end() ? 0 : found->second;
}

void ByteRegisters::set(uint64_t address, uint8_t value)
{
    bytes_[address] = value;
}

int ByteRegisters::read(const Node &, uint64_t offset, std::span<uint8_t> out)
{
    if (offset % spacing_ != 0)
        return -EINVAL;
    size_t n = 0;
    for (; n < out.size() && offset + n * spacing_ < size_; ++n)
        out[n] = get(offset + n * spacing_);
    return static_cast<int>(n);
}

int ByteRegisters::write(const Node &, uint64_t offset, std::span<const uint8_t> in)
{
    if (offset % spacing_ != 0)
        return -EINVAL;
    size_t n = 0;
    for (; n < in.size() && offset + n * spacing_ < size_; ++n) {
        set(offset + n * spacing_, in[n]);
        const auto hook = write_hooks_.find(offset + n * spacing_);
        if (hook != write_hooks_.end())
            hook->second(in[n]);
    }
    return n == 0 && !in.empty() ? -ENOSPC : static_cast<int>(n);
}

ControlTable ByteRegisters::commands()
{
    using Row = ControlRow<ByteRegisters>;
    return {
        Row{"get ADDRESS", "print a register",
            [](const ByteRegisters &registers, const Given &given) {
                return hex(registers.get(given.number<uint64_t>("ADDRESS")), 2) + "\n";
            }},
        Row{"set ADDRESS VALUE", "change a register, as the hardware would",
            [](ByteRegisters &registers, const Given &given) {
                registers.set(given.number<uint64_t>("ADDRESS"), given.number<uint8_t>("VALUE"));
            }},
    };
}

} // namespace vboard
