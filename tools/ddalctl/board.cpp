// ddalctl board: identity of the board.
#include <ddal/fpga.h>
#include <ddal/unit.h>

#include <string>

#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/identity.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

struct BoardName {
    int type;
    const char *name;
};

constexpr BoardName kBoardNames[] = {{DDAL_BOARD_TYPE_MBO, "MBO"}};

constexpr const char *kInterfaces[] = {"eth0", "eth1", "eth3"};

void add_board_type(Report &report)
{
    const int type = DDAL(ddal_unit_get_board)();
    if (type <= 0)
        throw failure_of(type);
    std::string text = std::to_string(type);
    for (const BoardName &row : kBoardNames) {
        if (row.type == type)
            text += std::string(" (") + row.name + ")";
    }
    report.add("board-type", static_cast<uint64_t>(type), text);
}

void board(const Arguments &, Report &report)
{
    add_board_type(report);
    for (const IdentityText &row : identity_texts()) {
        const std::string name = row.name;
        if (!name.starts_with("module-"))
            add_if_there(report, row);
    }
    for (const char *interface : kInterfaces)
        add_mac_if_there(report, interface);
    uint32_t version = 0;
    if (DDAL(ddal_fpga_get_version)(&version) == 1) // returns 1 on success
        report.add_hex("fpga-version", version);
    else
        report.add_missing("fpga-version");
}

} // namespace

Family board_family()
{
    return {"board", "identity of the board", {{"", "show board type, identity and versions", {}, board}}};
}

} // namespace ddalctl
