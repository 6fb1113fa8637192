// ddalctl mem: physical memory.
#include <ddal/mem.h>

#include <cerrno>
#include <csetjmp>
#include <csignal>

#include "board/memory_driver.h"
#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

constexpr uint64_t kLastByte = INT64_MAX; // the highest offset in /dev/mem

sigjmp_buf bus_error;

// Accesses memory. Throws Failure where nothing answers, which the processor reports by SIGBUS.
template <typename Access>
void guarded(uint64_t address, Access access)
{
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = [](int) { siglongjmp(bus_error, 1); };
    sigaction(SIGBUS, &action, &before);
    const bool answers = sigsetjmp(bus_error, 1) == 0;
    if (answers)
        access();
    sigaction(SIGBUS, &before, nullptr);
    if (!answers)
        throw Failure(-EFAULT, kOperationFailed, "nothing answers at " + hex(address, 8), ddal::board::kMemoryNode);
}

// A mapping of physical memory, for the time of a command.
class Window {
public:
    Window(uint64_t address, uint32_t size) : address_(address), size_(size)
    {
        errno = 0;
        memory_ = static_cast<volatile uint8_t *>(DDAL(ddal_mem_map_addr)(address, size));
        if (!memory_)
            throw failure_of(errno != 0 ? -errno : -EIO);
    }
    ~Window() { DDAL(ddal_mem_unmap_addr)(const_cast<uint8_t *>(memory_), size_); }
    Window(const Window &) = delete;
    Window &operator=(const Window &) = delete;

    // Device registers require accesses of their width.
    uint32_t load(uint32_t offset, uint32_t width) const
    {
        volatile uint8_t *place = memory_ + offset;
        volatile uint32_t value = 0;
        guarded(address_ + offset, [&] {
            switch (width) {
            case 8: value = *place; break;
            case 16: value = *reinterpret_cast<volatile uint16_t *>(place); break;
            default: value = *reinterpret_cast<volatile uint32_t *>(place); break;
            }
        });
        return value;
    }
    void store(uint32_t width, uint32_t value) const
    {
        guarded(address_, [&] {
            switch (width) {
            case 8: *memory_ = static_cast<uint8_t>(value); break;
            case 16: *reinterpret_cast<volatile uint16_t *>(memory_) = static_cast<uint16_t>(value); break;
            default: *reinterpret_cast<volatile uint32_t *>(memory_) = value; break;
            }
        });
    }

private:
    uint64_t address_;
    volatile uint8_t *memory_ = nullptr;
    uint32_t size_;
};

uint32_t width_of(const Arguments &arguments)
{
    const uint32_t width = arguments.number_or("--width", 32);
    if (width != 8 && width != 16 && width != 32)
        throw WrongUse("--width: give 8, 16 or 32 bits");
    if (arguments.number64("ADDRESS") % (width / 8) != 0)
        throw WrongUse("ADDRESS: " + hex(arguments.number64("ADDRESS"), 1) + " is not a multiple of " +
                       std::to_string(width / 8) + ", the bytes of the width");
    return width;
}

void read(const Arguments &arguments, Report &report)
{
    const uint32_t count = arguments.number_or("COUNT", 1);
    const uint32_t width = width_of(arguments);
    const uint32_t bytes = width / 8;
    const uint64_t address = arguments.start64("ADDRESS", uint64_t{count} * bytes, kLastByte);
    const int digits = static_cast<int>(2 * bytes);
    const Window window(address, count * bytes);
    if (count == 1) {
        report.repeat("address", address);
        report.add_hex("value", window.load(0, width), digits);
        return;
    }
    for (uint32_t i = 0; i < count; i++) {
        Report &row = report.row("words");
        row.add_hex("address", address + uint64_t{i} * bytes);
        row.add_hex("value", window.load(i * bytes, width), digits);
    }
}

void write(const Arguments &arguments, Report &)
{
    const uint32_t width = width_of(arguments);
    const uint32_t value = arguments.number("VALUE");
    if (width < 32 && value >> width != 0)
        throw WrongUse("VALUE: " + hex(value, 1) + " is outside 0x0 to " + hex((uint32_t{1} << width) - 1, 1));
    const Window window(arguments.start64("ADDRESS", width / 8, kLastByte), width / 8);
    window.store(width, value);
}

std::vector<std::string> widths(const std::vector<std::string> &)
{
    return {"8", "16", "32"};
}

} // namespace

Family mem_family()
{
    const Argument address = {"ADDRESS", Kind::number, "physical address, a multiple of the width", false, UINT64_MAX};
    const Argument width = {"--width", Kind::number, "width of one access in bits: 8, 16 or 32 (default)", true, 32, 8,
                            8,         widths};
    return {"mem",
            "physical memory",
            {
                {"read",
                 "read one word, or several in a row",
                 {address, {"COUNT", Kind::number, "number of words", true, 4096, 1}, width},
                 read},
                {"write", "write one word", {address, {"VALUE", Kind::number, "value"}, width}, write},
            }};
}

} // namespace ddalctl
