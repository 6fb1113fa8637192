// ddalctl cpld: registers of the CPLD.
#include <ddal/cpld.h>

#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

void read(const Arguments &arguments, Report &report)
{
    uint8_t value = 0;
    require(DDAL(ddal_cpld_read)(arguments.number("ADDRESS"), &value));
    report.repeat("address", arguments.number("ADDRESS"));
    report.add_hex("value", value, 2);
}

void write(const Arguments &arguments, Report &)
{
    require(DDAL(ddal_cpld_write)(arguments.number("ADDRESS"), arguments.number("VALUE")));
}

} // namespace

Family cpld_family()
{
    const Argument address = {
        "ADDRESS", Kind::number, "byte offset of the register, a multiple of 4", false, UINT32_MAX, 0, 4};
    return {
        "cpld",
        "registers of the CPLD",
        {
            {"read", "read one register", {address}, read},
            {"write", "write one register", {address, {"VALUE", Kind::number, "0 to 255", false, UINT8_MAX}}, write},
        }};
}

} // namespace ddalctl
