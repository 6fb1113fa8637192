// The back end that serves a PHY operation.
#pragma once

#include <cstdint>

#include "phy/association.h"

namespace ddal::phy {

enum class BackEnd { kBroadcom, kMarvell, kLocal };

// How an external switch behind backhaul port 3 is recognised, and whether the MBO board serves the operation for its
// 2.5G PHY only.
enum class Rule { kFitting, kCachedType };

struct Operation {
    const char *caller;
    const char *mbo_text; // "MBO board <text> error: <phy_dev>"
    const char *marvell;  // name of the external switch's operation
    Rule rule;
};

class Route {
public:
    Route(const Operation &operation, uint32_t phy_dev) : operation_(operation), phy_dev_(phy_dev) {}

    // 0, or the code to return; logged under the operation's name.
    int find();
    // The same in two steps: the Broadcom switch (if any) or the interface; then what is behind the interface.
    int find_first();
    int find_behind_interface();

    BackEnd back_end() const { return back_end_; }
    // Port of the Broadcom or external switch.
    uint32_t port() const { return port_; }
    // The network interface; empty on the MBO board.
    const Interface &interface() const { return interface_; }

    // What the operation returns for the result of a switch's operation.
    int finish(int rc) const;
    // 0 if the PHY is copper. A board without PHYs is left to the register access, which refuses it.
    int check_copper() const;

private:
    int find_on_mbo();
    int find_behind_backhaul_3();
    void find_behind_soc_port();

    Operation operation_;
    uint32_t phy_dev_;
    BackEnd back_end_ = BackEnd::kLocal;
    uint32_t port_ = 0;
    Interface interface_{};
};

// False on the board whose PHYs cannot be reached.
bool has_phy_access();

} // namespace ddal::phy
