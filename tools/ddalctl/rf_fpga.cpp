// ddalctl rf-fpga: registers of the RF FPGAs.
#include <ddal/rf_fpga.h>

#include <cerrno>
#include <string>
#include <vector>

#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

constexpr uint32_t kLongestBlock = 65536;

// Requires a result that counts all words or bytes.
void require_count(int result, uint32_t count)
{
    if (result < 0)
        throw failure_of(result);
    if (static_cast<uint32_t>(result) != count)
        throw Failure(-EIO, kOperationFailed,
                      "only " + std::to_string(result) + " of " + std::to_string(count) + " moved");
}

uint32_t device_of(const Arguments &arguments)
{
    return arguments.number_or("--device", 0);
}

// Where `count` registers of the device begin: device 0 has registers of 4 bytes, the others of 1, one at a time.
uint32_t registers_at(const Arguments &arguments, uint32_t count)
{
    if (device_of(arguments) == 0) {
        arguments.number_as({"ADDRESS", Kind::number, "", false, UINT32_MAX, 0, 4});
        return arguments.start("ADDRESS", uint64_t{count} * 4);
    }
    if (count != 1)
        throw WrongUse("COUNT: " + std::to_string(count) + " is outside 1 to 1 of devices 1 to 3");
    return arguments.start("ADDRESS", 1);
}

// A number whose greatest value depends on the width of the device's registers.
uint32_t within_register(const Arguments &arguments, const char *name, uint32_t max_of_narrow)
{
    const uint32_t max = device_of(arguments) == 0 ? UINT32_MAX : max_of_narrow;
    return arguments.number_as({name, Kind::number, "", false, max});
}

// An open device, open for the time of a command.
class Device {
public:
    explicit Device(uint32_t devid) { require(DDAL(ddal_rf_fpga_open)(devid, &fd_)); }
    ~Device() { DDAL(ddal_rf_fpga_close)(fd_); }
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;

    int fd() const { return fd_; }

private:
    int fd_ = -1;
};

void read(const Arguments &arguments, Report &report)
{
    std::vector<uint32_t> words(arguments.number_or("COUNT", 1));
    const auto count = static_cast<uint32_t>(words.size());
    const uint32_t address = registers_at(arguments, count);
    require_count(DDAL(ddal_rf_fpga_read)(address, count, words.data(), device_of(arguments)), count);
    if (count == 1) {
        report.repeat("address", address);
        report.add_hex("value", words[0]);
        return;
    }
    for (uint32_t i = 0; i < count; i++) {
        Report &row = report.row("registers");
        row.add_hex("address", address + 4 * i);
        row.add_hex("value", words[i]);
    }
}

void write(const Arguments &arguments, Report &)
{
    const uint32_t address = registers_at(arguments, 1);
    const uint32_t value = within_register(arguments, "VALUE", UINT8_MAX);
    require_count(DDAL(ddal_rf_fpga_write)(address, 1, &value, device_of(arguments)), 1);
}

void masked_write(const Arguments &arguments, Report &)
{
    const uint32_t address = registers_at(arguments, 1);
    const uint32_t mask = within_register(arguments, "MASK", UINT8_MAX);
    const uint32_t value = within_register(arguments, "VALUE", UINT8_MAX);
    require(DDAL(ddal_rf_fpga_masked_write)(address, mask, value, device_of(arguments)));
}

void set_bit(const Arguments &arguments, Report &)
{
    const uint32_t address = registers_at(arguments, 1);
    const uint32_t bit = within_register(arguments, "BIT", 7);
    require(DDAL(ddal_rf_fpga_bit_set)(address, bit, device_of(arguments)));
}

void clear_bit(const Arguments &arguments, Report &)
{
    const uint32_t address = registers_at(arguments, 1);
    const uint32_t bit = within_register(arguments, "BIT", 7);
    require(DDAL(ddal_rf_fpga_bit_reset)(address, bit, device_of(arguments)));
}

void version(const Arguments &, Report &report)
{
    uint32_t version = 0;
    require(DDAL(ddal_rf_fpga_get_version)(&version), 1);
    report.add_hex("version", version);
}

void read_block(const Arguments &arguments, Report &report)
{
    std::vector<uint8_t> bytes(arguments.number("LENGTH"));
    const auto length = static_cast<uint32_t>(bytes.size());
    const uint32_t address = arguments.start("ADDRESS", length);
    const Device device(device_of(arguments));
    require_count(DDAL(ddal_rf_fpga_read_fd)(device.fd(), address, length, bytes.data()), length);
    std::string digits;
    for (const uint8_t byte : bytes)
        digits += hex(byte, 2).substr(2);
    report.repeat("address", address);
    report.add("bytes", digits);
}

void write_block(const Arguments &arguments, Report &)
{
    const std::vector<uint8_t> bytes = arguments.bytes("BYTES");
    const auto length = static_cast<uint32_t>(bytes.size());
    const uint32_t address = arguments.start("ADDRESS", length);
    const Device device(device_of(arguments));
    require_count(DDAL(ddal_rf_fpga_write_fd)(device.fd(), address, length, bytes.data()), length);
}

void masked_write_block(const Arguments &arguments, Report &)
{
    const std::vector<uint8_t> clear = arguments.bytes("CLEAR");
    const std::vector<uint8_t> set = arguments.bytes("SET");
    if (clear.size() != set.size())
        throw WrongUse("CLEAR and SET: " + std::to_string(clear.size()) + " and " + std::to_string(set.size()) +
                       " bytes; give equally many");
    const auto length = static_cast<uint32_t>(clear.size());
    const uint32_t address = arguments.start("ADDRESS", length);
    const Device device(device_of(arguments));
    require_count(DDAL(ddal_rf_fpga_masked_write_fd)(device.fd(), address, length, clear.data(), set.data()), length);
}

} // namespace

Family rf_fpga_family()
{
    const Argument address = {"ADDRESS", Kind::number, "register address; a multiple of 4 for device 0"};
    const Argument value = {"VALUE", Kind::number, "value; at most 255 for devices 1 to 3"};
    const Argument bit = {"BIT", Kind::number, "bit number, 0 to 31; 0 to 7 for devices 1 to 3", false, 31};
    const Argument device = {"--device", Kind::number, "RF FPGA 0 (default) to 3", true, 3};
    const Argument start = {"ADDRESS", Kind::number, "byte offset"};
    return {"rf-fpga",
            "registers of the RF FPGAs",
            {
                {"read",
                 "read one register, or several in a row of device 0",
                 {address, {"COUNT", Kind::number, "number of registers", true, 4096, 1}, device},
                 read},
                {"write", "write one register", {address, value, device}, write},
                {"masked-write",
                 "change the bits of MASK to those of VALUE, atomically",
                 {address, {"MASK", Kind::number, "bits to change"}, value, device},
                 masked_write},
                {"set-bit", "set one bit, atomically", {address, bit, device}, set_bit},
                {"clear-bit", "clear one bit, atomically", {address, bit, device}, clear_bit},
                {"version", "read the version word of device 0", {}, version},
                {"read-block",
                 "read a block of bytes",
                 {start, {"LENGTH", Kind::number, "number of bytes", false, kLongestBlock, 1}, device},
                 read_block},
                {"write-block",
                 "write a block of bytes",
                 {start, {"BYTES", Kind::bytes, "pairs of hexadecimal digits, lowest address first"}, device},
                 write_block},
                {"masked-write-block",
                 "clear and set bits of a block of bytes under the device's lock",
                 {start,
                  {"CLEAR", Kind::bytes, "bits to clear, pairs of hexadecimal digits"},
                  {"SET", Kind::bytes, "bits to set afterwards, of the same length"},
                  device},
                 masked_write_block},
            }};
}

} // namespace ddalctl
