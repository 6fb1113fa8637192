// ddalctl dfe: the register space of the digital front end.
#include <ddal/dfe.h>

#include <string>
#include <vector>

#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

constexpr uint32_t kLongestBlock = 65536;

void read(const Arguments &arguments, Report &report)
{
    std::vector<uint8_t> bytes(arguments.number("LENGTH"));
    const uint32_t address = arguments.start("ADDRESS", bytes.size());
    require(DDAL(ddal_dfe_read)(DDAL_DFE_CHIP_ID0, address, bytes.data(), bytes.size()));
    std::string digits;
    for (const uint8_t byte : bytes)
        digits += hex(byte, 2).substr(2);
    report.repeat("address", address);
    report.add("bytes", digits);
}

void write(const Arguments &arguments, Report &)
{
    const std::vector<uint8_t> bytes = arguments.bytes("BYTES");
    const uint32_t address = arguments.start("ADDRESS", bytes.size());
    require(DDAL(ddal_dfe_write)(DDAL_DFE_CHIP_ID0, address, bytes.data(), bytes.size()));
}

void masked_write(const Arguments &arguments, Report &)
{
    const std::vector<uint8_t> mask = arguments.bytes("MASK");
    const std::vector<uint8_t> bytes = arguments.bytes("BYTES");
    if (mask.size() != bytes.size())
        throw WrongUse("MASK and BYTES: " + std::to_string(mask.size()) + " and " + std::to_string(bytes.size()) +
                       " bytes; give equally many");
    const uint32_t address = arguments.start("ADDRESS", bytes.size());
    require(DDAL(ddal_dfe_masked_write)(DDAL_DFE_CHIP_ID0, address, bytes.data(), mask.data(), bytes.size()));
}

} // namespace

Family dfe_family()
{
    const Argument address = {"ADDRESS", Kind::number, "byte offset"};
    const Argument bytes = {"BYTES", Kind::bytes, "pairs of hexadecimal digits, lowest address first"};
    return {"dfe",
            "register space of the digital front end",
            {
                {"read",
                 "read a block",
                 {address, {"LENGTH", Kind::number, "number of bytes", false, kLongestBlock, 1}},
                 read},
                {"write", "write a block", {address, bytes}, write},
                {"masked-write",
                 "change the bits of MASK to those of BYTES",
                 {address, {"MASK", Kind::bytes, "bits to change"}, bytes},
                 masked_write},
            }};
}

} // namespace ddalctl
