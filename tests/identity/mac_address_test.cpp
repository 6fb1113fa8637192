#include <cerrno>

#include <ddal/devicetree.h>
#include <ddal/unit.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/board_file.h"
#include "support/in_child.h"
#include "support/log_watch.h"
#include "support/property_rows.h"

using namespace testing_board;

namespace {

const std::string kIdentity = "/proc/device-tree/board-identity/";
const std::string kNetcp = "/sys/class/net/eth1/device/of_node/netcp-interfaces/interface-";
const std::string kPool = "/proc/device-tree/virtual-mac-pool/virtual-mac";

// A case runs in a child, because a process reads its board type once.
struct Case {
    uint32_t board;
    uint32_t backhaul_3;
    const char *ifname;
    int result;
    std::string mac; // untouched: "......"
};

const std::string kUntouched = "......";

TEST(MacAddress, ComesFromTheSourceOfTheInterface)
{
    for (const char *n : {"0", "1", "2", "3"})
        put_file(kNetcp + n + "/local-mac-address", std::string("PORT-") + n);
    put_file(kPool + "0/local-mac-address", "POOL-0");
    put_file(kPool + "1/local-mac-address", "POOL-1");
    put_file(kIdentity + "local-mac-address", "\x01\x11\x22\x33\x44\xfe");

    const Case cases[] = {
        {5, 6, "eth0", 0, "PORT-2"},
        {5, 6, "eth1", 0, "PORT-1"},
        {5, 6, "eth2", 0, "\x01\x11\x22\x33\x44\xff"},
        {5, 6, "eth3", 0, std::string("\x01\x11\x22\x33\x45\x00", 6)},
        {5, 6, "virt0", 0, "POOL-0"},
        {5, 6, "eth", -ENODEV, kUntouched},
        {8, 5, "eth0", 0, "PORT-0"},
        {8, 5, "eth1", 0, "PORT-1"},
        {8, 5, "eth2", -ENODEV, kUntouched},
        {8, 5, "eth3", 0, "PORT-3"},
        {8, 6, "eth0", 0, "PORT-2"},
        {8, 7, "eth3", 0, "PORT-0"},
        {8, 7, "eth1", 0, "PORT-1"},
        {8, 8, "eth0", 0, "PORT-0"},
        {9, 6, "eth0", 0, "PORT-0"}, // never the alternate source
        {9, 7, "eth3", 0, "PORT-3"},
        {9, 7, "virt1", 0, "POOL-1"},
        {9, 7, "virt", -ENOENT, kUntouched},
        {9, 7, "virt0123456789012345678901234567890123456789", -ENOENT, kUntouched},
        {9, 7, "eth00", -ENODEV, kUntouched},
        {10, 6, "eth0", 0, "PORT-2"}, // a board type out of range
    };
    for (const Case &c : cases) {
        put_cells(kIdentity + "board-type", {c.board - 1});
        put_cells(kIdentity + "user-defined-a/backhaul-3-type", {c.backhaul_3});
        EXPECT_EQ(wait_for_child(start_child([&] {
                      std::string mac = kUntouched;
                      const int result =
                          ddal_devicetree_get_mac_addr(0, c.ifname, reinterpret_cast<uint8_t *>(mac.data()));
                      return (result == c.result ? 0 : 1) + (mac == c.mac ? 0 : 2);
                  })),
                  0)
            << "board " << c.board << ", backhaul " << c.backhaul_3 << ", " << c.ifname;
    }
}

TEST(MacAddress, WrapsAroundOnBoard5)
{
    put_cells(kIdentity + "board-type", {4});
    put_file(kIdentity + "local-mac-address", "\xff\xff\xff\xff\xff\xff");
    EXPECT_EQ(wait_for_child(start_child([] {
                  uint8_t mac[6] = {9, 9, 9, 9, 9, 9};
                  const int result = ddal_devicetree_get_mac_addr(0, "eth3", mac);
                  const uint8_t expected[6] = {0, 0, 0, 0, 0, 1};
                  return result == 0 && std::equal(mac, mac + 6, expected) ? 0 : 1;
              })),
              0);
}

TEST(MacAddress, LogsTheMissingPart)
{
    put_cells(kIdentity + "board-type", {8});
    const std::string backhaul = kIdentity + "user-defined-a/backhaul-3-type";
    const KeptFile kept(backhaul);
    LogWatch log;
    uint8_t mac[6];
    EXPECT_EQ(ddal_devicetree_get_mac_addr(0, "wlan0", mac), -ENODEV);
    put_file(backhaul, "");
    EXPECT_EQ(ddal_devicetree_get_mac_addr(0, "wlan0", mac), -ENODATA);
    EXPECT_EQ(log.take(),
              (std::vector<std::string>{"3 ddal_devicetree_get_mac_addr: not supported interface name wlan0",
                                        "3 ddal_devicetree_get_mac_addr: "
                                        "ddal_devicetree_get_user_defined_a_backhaul_3_type failed:-61"}));
}

TEST(MacAddress, SurvivesEveryFailure)
{
    put_cells(kIdentity + "board-type", {8});
    ddal_unit_get_board(); // read once per process
    const std::string line = "3 ddal_devicetree_get_mac_addr: "
                             "ddal_devicetree_get_user_defined_a_backhaul_3_type failed:*";
    Sweep sweep("ddal_devicetree_get_mac_addr", [] {
        uint8_t mac[6];
        return ddal_devicetree_get_mac_addr(0, "eth0", mac);
    });
    add_reading(sweep, kNetcp + "*").when("fread/end:" + kNetcp + "*", changes_nothing());
    add_reading(sweep, kIdentity + "*", {line})
        .when("fread/short:" + kIdentity + "*", fails(-ENODATA, {line}))
        .when("fread/end:" + kIdentity + "*", fails(-ENODATA, {line}))
        .run();
}

} // namespace
