// ddalctl on PHYs, links and the Ethernet switch: settings arrive, and a refusal names the alternative.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "tools/ddalctl.h"

using namespace testing_board;
using namespace std::chrono_literals;
using testing::HasSubstr;

// Device 3 is the copper port 20 of the switch, device 1 the fibre port 18.
TEST(DdalctlPhy, ReadsBackItsSettings)
{
    struct {
        const char *setting;
        const char *value;
        const char *document;
    } const cases[] = {
        {"speed", "100", R"({"speed": 100})"},
        {"duplex", "half", R"({"duplex": "half"})"},
        {"autoneg", "on", R"({"autoneg": true})"},
        {"loopback", "on", R"({"loopback": true})"},
        {"loopback", "off", R"({"loopback": false})"},
        {"crossover", "crossed", R"({"crossover": "crossed"})"},
        {"clock-role", "master", R"({"clock-role": "master"})"},
        {"port-type", "multi-port", R"({"port-type": "multi-port"})"},
    };
    for (const auto &row : cases) {
        const std::string words = std::string("3 ") + row.setting;
        const Finished run = ddalctl("phy set " + words + " " + row.value);
        EXPECT_EQ(run.status, 0) << words << run.err;
        EXPECT_EQ(ddalctl_json("phy get " + words), Json::parse(row.document)) << words;
    }
    EXPECT_EQ(ddalctl("phy reset 3").status, 0);
}

TEST(DdalctlPhy, ReachesRegistersAndTheAdvertisement)
{
    EXPECT_EQ(ddalctl("phy write 3 4 0x0d41").status, 0);
    EXPECT_EQ(ddalctl("phy read 3 4").out, "value     0x0d41\nregister  advertised abilities\n"
                                           "bits      asymmetric pause, pause, 100 full, 10 full\n");
    EXPECT_EQ(ddalctl("phy advertise 3 100-full off").status, 0);
    EXPECT_EQ(ddalctl_json("phy advertised 3").at("100-full"), false);
    EXPECT_EQ(ddalctl_json("phy advertised 3").at("100-half"), false);
    EXPECT_EQ(ddalctl("phy advertise 3 100-full on").status, 0);
    EXPECT_EQ(ddalctl_json("phy advertised 3").at("100-full"), true);
    EXPECT_EQ(ddalctl_json("phy advertised 3").at("100-half"), false);
    EXPECT_EQ(ddalctl("phy restart 3").status, 0);
}

TEST(DdalctlPhy, ShowsThePlaceOfADeviceWithoutUnknownFields)
{
    EXPECT_EQ(ddalctl_json("phy list").at("devices").at(3).at("switch-port"), 20);
    const Json fibre = ddalctl_json("phy show 1");
    EXPECT_EQ(fibre.at("switch-port"), 18);
    EXPECT_EQ(fibre.at("link"), "up");
    EXPECT_EQ(fibre.at("link-speed"), 10000);
    EXPECT_EQ(fibre.at("crossover"), nullptr);
}

TEST(DdalctlSwitch, ShowsItsSettings)
{
    for (const char *line : {"shape 20 50000 64", "limit 20 0 0", "set-qos 20 on", "map-pcp 20 5 3",
                             "default-queue 20 6", "weights 20 0,1,2,3,4,5,6,7", "create-svlan 12", "join 20 12",
                             "default-svlan 20 12", "translate 20 100 12", "add-address 20 02:00:5e:10:00:99 12"}) {
        const Finished run = ddalctl(std::string("switch ") + line);
        EXPECT_EQ(run.status, 0) << line << run.err;
    }
    const Json port = ddalctl_json("switch show 20");
    EXPECT_EQ(port.at("egress-limit"), 50000);
    EXPECT_EQ(port.at("egress-burst"), 64);
    EXPECT_EQ(port.at("ingress-limit"), 0);
    EXPECT_EQ(port.at("default-svlan"), 12);
    const Json qos = ddalctl_json("switch qos 20");
    EXPECT_EQ(qos.at("qos"), true);
    EXPECT_EQ(qos.at("queues").at(7).at("weight"), 7);
    EXPECT_EQ(ddalctl_json("switch map 20 pcp").at("map").at(5).at("queue"), 3);
    const Json vlans = ddalctl_json("switch vlans 20");
    EXPECT_THAT(vlans.at("vlans"), testing::Contains(Json::parse(R"({"kind": "S-VLAN", "vlan": 12})")));
    EXPECT_THAT(vlans.at("translations"),
                testing::Contains(Json::parse(R"({"direction": "in", "cvlan": 100, "svlan": 12})")));
    EXPECT_EQ(ddalctl_json("switch addresses 20").at("addresses").at(0).at("mac"), "02:00:5e:10:00:99");

    for (const char *line : {"untranslate 20 100 12", "remove-address 20 02:00:5e:10:00:99 12", "default-svlan 20",
                             "leave 20 12", "delete-svlan 12"})
        EXPECT_EQ(ddalctl(std::string("switch ") + line).status, 0) << line;
    EXPECT_EQ(ddalctl_json("switch addresses 20").at("addresses"), Json::array());
    EXPECT_EQ(ddalctl_json("switch vlans 20").at("translations"), Json::array());
    EXPECT_EQ(ddalctl_json("switch show 20").at("default-svlan"), nullptr);
}

TEST(DdalctlSwitch, ShowsAndUndoesRules)
{
    const Json before = ddalctl_json("switch rules").at("rules");
    for (const char *line : {"tunnel 14 18", "tunnel 20 21 0x88f7", "loopback 16 on", "filter 19 20 01:00:5e:00:00:01",
                             "create-svlan 13", "join 14 13", "translate 14 100 13", "set-translation 14 13 on",
                             "ethertype-svlan 14 0x88f7 13", "learning shared"})
        EXPECT_EQ(ddalctl(std::string("switch ") + line).status, 0) << line;
    EXPECT_EQ(ddalctl_json("switch rules").at("rules").size(), before.size() + 13);
    const std::string rules = ddalctl("switch rules").out;
    EXPECT_THAT(rules, HasSubstr("from port 14, with a tag"));
    EXPECT_THAT(rules, HasSubstr("blocked on port 14, 18"));
    EXPECT_THAT(rules, HasSubstr("leave by port 18 only"));
    const std::string ways = ddalctl("switch forwarding").out;
    for (const char *way : {"14 <-> 18", "20 <-> 21", "of type 0x88f7", "16 -> 16", "to 01:00:5e:00:00:01"})
        EXPECT_THAT(ways, HasSubstr(way));
    EXPECT_EQ(ddalctl("switch translation 14 13").out, "on\n");
    EXPECT_EQ(ddalctl("switch learning").out, "shared\n");
    for (const char *line : {"untunnel 14 18", "untunnel 20 21", "loopback 16 off", "unfilter 19 20 01:00:5e:00:00:01",
                             "untranslate 14 100 13", "set-translation 14 13 off", "ethertype-svlan 14 0x88f7",
                             "delete-svlan 13", "learning independent"})
        EXPECT_EQ(ddalctl(std::string("switch ") + line).status, 0) << line;
    EXPECT_EQ(ddalctl_json("switch rules").at("rules"), before);
    EXPECT_EQ(ddalctl_json("switch forwarding").at("forwarding"), Json::array());
}

TEST(DdalctlSwitch, MapsADscp)
{
    EXPECT_EQ(ddalctl("switch map-dscp 20 46 5").status, 0);
    EXPECT_EQ(ddalctl_json("switch map 20 dscp").at("map").at(46).at("queue"), 5);
}

TEST(DdalctlSwitch, CountsAndClears)
{
    ctl("switch traffic 20 rx 7 700");
    ctl("switch drop 20 4 3");
    const Json counters = ddalctl_json("switch counters 20");
    EXPECT_EQ(counters.at("rx-packets"), 7);
    EXPECT_EQ(counters.at("rx-octets"), 700);
    EXPECT_EQ(counters.at("queue-4-dropped"), 3);
    EXPECT_EQ(ddalctl("switch clear-drops 20").status, 0);
    EXPECT_EQ(ddalctl_json("switch counters 20").at("queue-4-dropped"), 0);
    EXPECT_EQ(events_of(ddalctl("--json switch counters 20 --watch --count 1")).at(0).at("rx-packets"), 0);
    EXPECT_EQ(ddalctl_json("switch ports").at("ports").size(), 4u); // devices 0 and 2 share one port
}

TEST(DdalctlSwitch, TalksToTheSwitchesShell)
{
    ctl("switch-shell answer 0 release 6.5");
    EXPECT_EQ(ddalctl("switch shell version").out, "release 6.5\n");
    EXPECT_EQ(ddalctl_json("switch shell version").at("output"), "release 6.5\n");
    ctl("switch-shell log");
    EXPECT_EQ(ddalctl("switch synce 20").status, 0);
    EXPECT_THAT(ctl("switch-shell log"), HasSubstr("l1_rcvd_pri_clk_port_sel=10"));
    ctl("switch-shell answer 7");
    const Finished refused = ddalctl("switch shell nosuch");
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.err, HasSubstr("ended with 7"));
    ctl("switch-shell answer 0");
}

TEST(DdalctlLink, FollowsALinkThatIsSwitchedOffAndOn)
{
    EXPECT_EQ(ddalctl("link show 3").out, "up\n");
    EXPECT_EQ(ddalctl("link set 3 down --timeout 20000").status, 0);
    EXPECT_EQ(ddalctl_json("link show").at("links").at(3).at("link"), "down");
    EXPECT_EQ(ddalctl("link set 3 up --timeout 20000").status, 0);
    EXPECT_EQ(ddalctl("link show 3").out, "up\n");
    EXPECT_EQ(ddalctl("link show eth0").out, "up\n");
}

TEST(DdalctlLink, WaitsAtMostForItsTimeout)
{
    const Finished late = ddalctl("link wait 3 down --timeout 50 --json");
    EXPECT_EQ(late.status, 1);
    EXPECT_EQ(document_of(late).at("error").at("code"), -ETIMEDOUT);
    const Finished stopped =
        run_and_signal(words_of(std::string(DDALCTL_PROGRAM) + " link wait 3 down"), 500ms, SIGINT);
    EXPECT_EQ(stopped.status, 1);
    EXPECT_THAT(stopped.err, HasSubstr("interrupted before link 3 was down"));
}

TEST(DdalctlEvents, ReportLinkChanges)
{
    std::vector<std::string> told;
    EXPECT_EQ(run_and_answer(DDALCTL_PROGRAM " events --only link:1,link:3 --count 3",
                             [&](const std::string &line) {
                                 told.push_back(line.substr(line.find("link")));
                                 if (told.size() == 2)
                                     ctl("link 3 down");
                                 if (told.size() == 3)
                                     ctl("link 1 down");
                                 if (told.size() == 4)
                                     ctl("link 3 up");
                             }),
              0);
    EXPECT_THAT(told, testing::ElementsAre("link 1: waiting\n", "link 3: waiting\n", "link 3: down\n", "link 1: down\n",
                                           "link 3: up\n"));
    ctl("link 1 up");
}

TEST(DdalctlNetwork, NamesTheNextStep)
{
    ctl("link bus stop");
    struct {
        const char *line;
        int status;
        const char *hint;
    } const cases[] = {
        {"link show 3", 1, "message bus"},
        {"events --only link:3", 1, "message bus"},
        {"link show eth9", 3, "ip link"},
        {"link show 5", 2, "from 0 to 4"},
        {"link wait 3 sideways", 2, "one of down, up"},
        {"events --only link:5", 2, "link:0 to link:4"},
        {"phy get 3 colour", 2, "recovered-clock"},
        {"phy set 3 speed fast", 2, "one of 10, 100"},
        {"phy set 3 negotiated-role master", 2, "can only be read"},
        {"phy read 1 0", 1, "log"},
        {"phy", 2, "one of list, show"},
        {"phy nosuch", 2, "does not know the command \"nosuch\""},
        {"switch create-svlan 21", 2, "1 to 20"},
        {"phy read 3 0 --page 1", 2, "MBO board"},
        {"switch weights 20 1,2", 2, "2 weights for 8 queues"},
        {"switch add-address 20 02:00:5e:10:00 1", 2, "02:00:5e"},
        {"nosuch", 2, "no command \"nosuch\""},
    };
    for (const auto &row : cases) {
        const Finished run = ddalctl(row.line);
        EXPECT_EQ(run.status, row.status) << row.line << run.err;
        EXPECT_THAT(run.err, HasSubstr(row.hint)) << row.line;
    }
    ctl("link bus start");
}
