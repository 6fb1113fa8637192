// The ethtool path on interfaces of the kernel: the two ends of a veth pair in a separate network. Device 1 of this
// board is "eth0", device 0 "eth1". The board supplies the registers of their PHYs.
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <linux/ethtool.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <linux/veth.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include <ddal/phy.h>

#include "support/board.h"
#include "support/log_watch.h"
#include "support/resources.h"

using namespace testing_board;

namespace {

constexpr uint32_t kDevice = 1;

// A message of the kernel's network configuration, with attributes that may hold attributes.
class Message {
public:
    explicit Message(uint16_t type)
    {
        nlmsghdr head{};
        head.nlmsg_type = type;
        head.nlmsg_flags = NLM_F_REQUEST | NLM_F_CREATE | NLM_F_EXCL | NLM_F_ACK;
        add(&head, sizeof head);
        add_link();
    }
    void add_link()
    {
        const ifinfomsg link{};
        add(&link, sizeof link);
    }
    void put(uint16_t type, const char *text)
    {
        const size_t at = begin(type);
        add(text, strlen(text) + 1);
        end(at);
    }
    size_t begin(uint16_t type)
    {
        const rtattr head{0, type};
        add(&head, sizeof head);
        return bytes_.size() - sizeof head;
    }
    void end(size_t at)
    {
        const auto length = static_cast<uint16_t>(bytes_.size() - at);
        memcpy(&bytes_[at], &length, sizeof length);
        bytes_.resize(NLMSG_ALIGN(bytes_.size()));
    }
    // Returns 0 or the kernel's errno.
    int send()
    {
        const auto length = static_cast<uint32_t>(bytes_.size());
        memcpy(bytes_.data(), &length, sizeof length);
        const int sock = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
        struct {
            nlmsghdr head;
            nlmsgerr error;
        } answer{};
        const bool asked =
            sock >= 0 && ::send(sock, bytes_.data(), bytes_.size(), 0) > 0 && recv(sock, &answer, sizeof answer, 0) > 0;
        const int failure = asked ? -answer.error.error : errno;
        close(sock);
        return failure;
    }

private:
    void add(const void *bytes, size_t length)
    {
        const auto *from = static_cast<const char *>(bytes);
        bytes_.insert(bytes_.end(), from, from + length);
    }
    std::vector<char> bytes_;
};

int make_pair_of_interfaces(const char *name, const char *peer)
{
    Message message(RTM_NEWLINK);
    message.put(IFLA_IFNAME, name);
    const size_t info = message.begin(IFLA_LINKINFO);
    message.put(IFLA_INFO_KIND, "veth");
    const size_t data = message.begin(IFLA_INFO_DATA);
    const size_t other = message.begin(VETH_INFO_PEER);
    message.add_link();
    message.put(IFLA_IFNAME, peer);
    for (const size_t at : {other, data, info})
        message.end(at);
    return message.send();
}

// Returns the flags of the interface from the kernel.
short flags_of(const char *name)
{
    ifreq request{};
    strcpy(request.ifr_name, name);
    const int sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(ioctl(sock, SIOCGIFFLAGS, &request), 0) << name;
    close(sock);
    return request.ifr_flags;
}

void bring(const char *name, bool up)
{
    ifreq request{};
    strcpy(request.ifr_name, name);
    request.ifr_flags = up ? IFF_UP : 0;
    const int sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(ioctl(sock, SIOCSIFFLAGS, &request), 0) << name;
    close(sock);
}

ddal_phy_copper_status status()
{
    ddal_phy_copper_status now{9, 9, 9};
    EXPECT_EQ(ddal_phy_copper_get_status(kDevice, &now), 0);
    return now;
}

class KernelInterfaces : public testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(make_pair_of_interfaces("eth0", "eth1"), 0); }
    void SetUp() override
    {
        bring("eth0", true);
        bring("eth1", true);
        ctl("phy 2090300.mdio:00 set 0 0x1140");
    }
};

} // namespace

// Must run first, before the interfaces are made.
TEST(KernelWithoutInterfaces, ReportsMissingInterfaces)
{
    uint32_t value = 9;
    testing::internal::CaptureStderr();
    EXPECT_EQ(ddal_phy_get_speed(kDevice, 0, &value), -1001);
    EXPECT_EQ(ddal_phy_copper_power_down(kDevice), -1001);
    const std::string printed = testing::internal::GetCapturedStderr();
    EXPECT_NE(printed.find(": No such device\n"), std::string::npos) << printed;
    EXPECT_NE(printed.find("cannot get flags from interface <eth0>"), std::string::npos) << printed;
    EXPECT_EQ(ddal_phy_event_register_linux_interface("eth0"), -1);
}

TEST_F(KernelInterfaces, ShowTheirSettings)
{
    uint32_t value = 9;
    EXPECT_EQ(ddal_phy_get_speed(kDevice, 0, &value), 0);
    EXPECT_EQ(value, 10000u);
    EXPECT_EQ(ddal_phy_get_duplex_mode(kDevice, 0, &value), 0);
    EXPECT_EQ(value, uint32_t{DUPLEX_FULL});
    EXPECT_EQ(ddal_phy_get_autoneg(kDevice, 0, &value), 0);
    EXPECT_EQ(value, 0u);
    uint16_t advertised = 9;
    EXPECT_EQ(ddal_phy_copper_get_config_advert(kDevice, 100, 1, &advertised), 0);
    EXPECT_EQ(advertised, 0);
}

TEST_F(KernelInterfaces, ShowTheirLink)
{
    const Resources before;
    EXPECT_EQ(status().link, 1u);
    EXPECT_EQ(status().speed, 10000u);
    EXPECT_EQ(status().duplex, uint32_t{DUPLEX_FULL});
    bring("eth1", false);
    EXPECT_EQ(status().link, 0u) << "the other end is down";
    EXPECT_EQ(status().speed, 10000u) << "a veth keeps its speed";
    bring("eth0", false);
    EXPECT_EQ(status().link, 0u);
    EXPECT_EQ(status().speed, UINT32_MAX);
    EXPECT_EQ(status().duplex, UINT32_MAX);
    EXPECT_EQ(before.difference(), "");
}

TEST_F(KernelInterfaces, GoDownAndComeUpWithTheirPhy)
{
    LogWatch log;
    EXPECT_EQ(ddal_phy_copper_power_down(kDevice), 0);
    EXPECT_FALSE(flags_of("eth0") & IFF_UP);
    EXPECT_TRUE(flags_of("eth0") & IFF_BROADCAST) << "only that flag is changed";
    EXPECT_TRUE(flags_of("eth1") & IFF_UP);
    EXPECT_EQ(ctl("phy 2090300.mdio:00 get 0"), "0x1940\n");
    EXPECT_EQ(ddal_phy_copper_power_up(kDevice), 0);
    EXPECT_TRUE(flags_of("eth0") & IFF_UP);
    EXPECT_EQ(status().link, 1u);
    EXPECT_EQ(log.take(), (std::vector<std::string>{
                              "4 ddal_ifconfig_down: bringing down interface eth0",
                              "4 ddal_ifconfig_up: bringing up interface eth0",
                          }));
}

// A veth has readable settings that cannot be changed: the kernel refuses the write.
TEST_F(KernelInterfaces, RefuseOtherSettings)
{
    struct Set {
        const char *what;
        int (*call)();
        const char *printed;
    };
    for (const Set &each : {
             Set{"speed", [] { return ddal_phy_set_speed(kDevice, 0, 100); },
                 "Unable to set speed via ethtool.: Operation not supported\n"},
             Set{"duplex", [] { return ddal_phy_set_duplex_mode(kDevice, 0, 0); },
                 "Unable to set duplex mode via ethtool.: Operation not supported\n"},
             Set{"autoneg", [] { return ddal_phy_set_autoneg(kDevice, 0, 1); },
                 "Unable to set ethtool settings.: Operation not supported\n"},
             Set{"advertisement", [] { return ddal_phy_copper_set_config_advert(kDevice, 100, 1, 1); },
                 "ioctl failure for ETHTOOL_SSET: Operation not supported\n"},
         }) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(each.call(), -1001) << each.what;
        const std::string printed = testing::internal::GetCapturedStderr();
        EXPECT_NE(printed.find(each.printed), std::string::npos) << each.what << ": " << printed;
    }
}
