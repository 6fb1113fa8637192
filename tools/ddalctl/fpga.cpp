// ddalctl fpga: registers of the main FPGA.
#include <ddal/fpga.h>

#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

constexpr int kTransferDone = 1;             // success of the library's 32-bit register calls
constexpr uint32_t kWord = sizeof(uint32_t); // bytes of a register

void read(const Arguments &arguments, Report &report)
{
    const uint32_t count = arguments.number_or("COUNT", 1);
    const uint32_t address = arguments.start("ADDRESS", count * kWord);
    uint32_t value = 0;
    if (count == 1) {
        require(DDAL(ddal_fpga_read)(address, &value), kTransferDone);
        report.repeat("address", address);
        report.add_hex("value", value);
        return;
    }
    for (uint32_t i = 0; i < count; i++) {
        require(DDAL(ddal_fpga_read)(address + kWord * i, &value), kTransferDone);
        Report &row = report.row("registers");
        row.add_hex("address", address + kWord * i);
        row.add_hex("value", value);
    }
}

void write(const Arguments &arguments, Report &)
{
    const uint32_t address = arguments.start("ADDRESS", kWord);
    require(DDAL(ddal_fpga_write)(address, arguments.number("VALUE")), kTransferDone);
}

void masked_write(const Arguments &arguments, Report &)
{
    const uint32_t address = arguments.start("ADDRESS", kWord);
    require(DDAL(ddal_fpga_masked_write)(address, arguments.number("MASK"), arguments.number("VALUE")));
}

void version(const Arguments &, Report &report)
{
    uint32_t version = 0;
    require(DDAL(ddal_fpga_get_version)(&version), kTransferDone);
    report.add_hex("version", version);
}

} // namespace

Family fpga_family()
{
    const Argument address = {
        "ADDRESS", Kind::number, "byte offset of the register, a multiple of 4", false, UINT32_MAX, 0, kWord};
    const Argument value = {"VALUE", Kind::number, "32-bit value"};
    return {"fpga",
            "registers of the main FPGA",
            {
                {"read",
                 "read one register, or several in a row",
                 {address, {"COUNT", Kind::number, "number of registers", true, 4096, 1}},
                 read},
                {"write", "write one register", {address, value}, write},
                {"masked-write",
                 "change the bits of MASK to those of VALUE, atomically",
                 {address, {"MASK", Kind::number, "bits to change"}, value},
                 masked_write},
                {"version", "read the version word", {}, version},
            }};
}

} // namespace ddalctl
