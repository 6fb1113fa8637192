// ddalctl aif: the radio data path between the SoC's antenna interface and the main FPGA.
#include <ddal/rp3.h>

#include <cstdio>
#include <sstream>
#include <string>

#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

constexpr size_t kTextSize = 2048;

// "0x00140900 <0x00000007> - RP1 and SFN status"
void add_line(Report &report, const std::string &line)
{
    uint32_t address = 0;
    uint32_t value = 0;
    int label = 0;
    if (sscanf(line.c_str(), "0x%8x <0x%8x> - %n", &address, &value, &label) != 2)
        return;
    Report &row = report.row("registers");
    row.add_hex("address", address);
    row.add_hex("value", value);
    row.add("label", line.substr(static_cast<size_t>(label)));
}

void validate(const Arguments &, Report &report)
{
    char text[kTextSize] = "";
    const int result = DDAL(ddal_rp3_validate_aif)("", 0, text, sizeof text);
    if (!*text)
        throw failure_of(result);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        add_line(report, line);
    report.add("healthy", result == 0, result == 0 ? "links healthy" : "links not healthy");
}

void log(const Arguments &arguments, Report &)
{
    require(DDAL(ddal_rp3_validate_aif)(arguments.text("EVENT").c_str(), 1, nullptr, 0));
}

} // namespace

Family aif_family()
{
    return {"aif",
            "the radio data path between the SoC's antenna interface and the main FPGA",
            {
                {"validate", "show its registers and whether the links are healthy", {}, validate},
                {"log",
                 "append a snapshot of its registers to the board's link log",
                 {{"EVENT", Kind::text, "label of the entry"}},
                 log},
            }};
}

} // namespace ddalctl
