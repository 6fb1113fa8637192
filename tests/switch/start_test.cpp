// Opening the switch: every step, its line, the lasting failure. Each case has a process of its own.
#include <atomic>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <thread>
#include <vector>

#include <ddal/bcm.h>
#include <ddal/bcm_open.h>
#include <ddal/eth_switch.h>

#include "support/board.h"
#include "support/in_child.h"
#include "support/log_watch.h"

using namespace testing_board;

namespace {

enum class Product { kNone, kFailing, kOwnRules };
Product product = Product::kNone;

std::string opening_fails_with(const std::function<void()> &prepare)
{
    return in_child([&] {
        prepare();
        uint32_t speed = 0;
        LogWatch log;
        std::string text = std::to_string(ddal_bcm_get_speed(18, &speed));
        for (const std::string &line : log.take())
            text += "|" + line.substr(2);
        // The next operation only says that the switch is not open, and does not ask the SDK again.
        ctl("switch calls");
        text += "|" + std::to_string(ddal_bcm_power_up(18));
        for (const std::string &line : log.take())
            text += "|" + line.substr(2);
        return text + ctl("switch calls");
    });
}

int calls_of(const std::string &name)
{
    std::istringstream calls(ctl("switch calls"));
    int count = 0;
    for (std::string line; std::getline(calls, line);)
        count += line.substr(0, line.find(' ')) == name;
    return count;
}

void wait_for_nanoseconds_between(long first, long last)
{
    timespec now{};
    do
        clock_gettime(CLOCK_MONOTONIC, &now);
    while (now.tv_nsec < first || now.tv_nsec > last);
}

int install(const char *name)
{
    if (product == Product::kNone)
        return reinterpret_cast<int (*)()>(dlsym(RTLD_NEXT, name))();
    return product == Product::kFailing && std::string(name).ends_with("_tagged_entries") ? -1 : 0;
}

std::string opened()
{
    uint32_t speed = 0;
    return std::to_string(ddal_bcm_get_speed(18, &speed));
}

} // namespace

// A product's own installers, in place of the library's or in front of them.
#define INSTALLER(name)                                                                                                \
    extern "C" int ddal_bcm_ifp_install_default_##name(void)                                                           \
    {                                                                                                                  \
        return install("ddal_bcm_ifp_install_default_" #name);                                                         \
    }
INSTALLER(field_groups)
INSTALLER(untagged_entries)
INSTALLER(tagged_entries)
INSTALLER(untagged_dstmac_entries)
INSTALLER(tagged_dstmac_entries)
INSTALLER(tunnel_drop_entry)

TEST(Start, EachStepHasItsLineAndTheFailureLasts)
{
    struct Step {
        const char *call;
        int code;
        std::string lines;
    };
    const std::string in = "initialize_eth_switch: ";
    const std::string run = "broadcom_rpc_client_run: ";
    const Step kSteps[] = {
        {"sal_core_init", -1, in + "cannot initialize SAL abstraction layer"},
        {"sal_appl_init", -1, in + "cannot initialize SAL abstraction layer"},
        {"sal_config_set", -1,
         "sal_config_init_defaults: cannot configure SAL for Broadcom 10G switch|" + in +
             "cannot initialize SAL abstraction layer"},
        {"cpudb_create", -2, in + "cannot create CPU database"},
        {"cpudb_entry_create", -2, in + "cannot create CPU database entry"},
        {"atptrans_socket_server_start", -11, in + "cannot start server socket: Operation failed"},
        {"atp_cos_vlan_set", -4, in + "cannot set ATP class of service and VLAN: Invalid parameter"},
        {"atp_start", -10, in + "cannot start ATP: Operation still running"},
        {"atp_db_update", -6, in + "cannot update ATP CPU database: Table full"},
        {"atptrans_socket_install", -9, in + "cannot install server socket: Operation timed out"},
        {"bcm_rpc_start", -11,
         run + "cannot start Broadcom switch RPC: Operation failed|" + in + "RPC client run error"},
        {"bcm_rlink_start", -12,
         run + "cannot start Broadcom switch RLINK: Operation disabled|" + in + "RPC client run error"},
        {"bcm_attach", -9,
         run + "cannot attach to broadcom switch user service: Operation timed out|" + in + "RPC client run error"},
        {"bcm_attach", -99,
         run + "cannot attach to broadcom switch user service: Unknown error|" + in + "RPC client run error"},
    };
    const std::string closed = "open_bcm_switch: cannot open Broadcom switch";
    for (const Step &step : kSteps) {
        EXPECT_EQ(
            opening_fails_with([&] { ctl("switch fail " + std::string(step.call) + " " + std::to_string(step.code)); }),
            "-1001|" + step.lines + "|" + closed + "|-1001|" + closed)
            << step.call;
        ctl("switch heal " + std::string(step.call));
    }
    EXPECT_EQ(opening_fails_with([] { product = Product::kFailing; }),
              "-1001|" + in + "Error installing default IFP field groups and entries|" + closed + "|-1001|" + closed);
}

TEST(Start, HappensOnceForAllThreads)
{
    EXPECT_EQ(in_child([] {
                  ctl("switch calls");
                  std::atomic<int> ready{0}, failed{0};
                  std::vector<std::thread> threads;
                  for (int i = 0; i < 8; ++i)
                      threads.emplace_back([&] {
                          ++ready;
                          while (ready < 8)
                              ;
                          uint32_t speed = 0;
                          failed += ddal_bcm_get_speed(18, &speed) != 0 || speed != 10000;
                      });
                  for (std::thread &thread : threads)
                      thread.join();
                  return "failed " + std::to_string(failed) + ", attached " + std::to_string(calls_of("bcm_attach"));
              }),
              "failed 0, attached 1");
}

// The service is out of resources. While the second lasts in which the attachment began, the first answer of that kind
// ends it; once it has passed, the attachment goes on until the service has resources.
TEST(Start, WaitsForResourcesOnlyBeyondTheSecond)
{
    EXPECT_EQ(opening_fails_with([] {
                  ctl("switch fail bcm_attach -14");
                  wait_for_nanoseconds_between(0, 500'000'000);
              }),
              "-1001|broadcom_rpc_client_run: cannot attach to broadcom switch user service: timeout"
              "|initialize_eth_switch: RPC client run error|open_bcm_switch: cannot open Broadcom switch"
              "|-1001|open_bcm_switch: cannot open Broadcom switch");
    ctl("switch heal bcm_attach");

    EXPECT_EQ(in_child([] {
                  ctl("switch fail bcm_attach -14 3");
                  ctl("switch calls");
                  wait_for_nanoseconds_between(925'000'000, 985'000'000);
                  timespec begin{}, end{};
                  clock_gettime(CLOCK_MONOTONIC, &begin);
                  uint32_t speed = 0;
                  const int result = ddal_bcm_get_speed(18, &speed);
                  clock_gettime(CLOCK_MONOTONIC, &end);
                  const double seconds = double(end.tv_sec - begin.tv_sec) + double(end.tv_nsec - begin.tv_nsec) / 1e9;
                  return std::to_string(result) + " after " + std::to_string(calls_of("bcm_attach")) + " attempts, " +
                         (seconds >= 0.3 && seconds < 5 ? "a pause before each" : std::to_string(seconds) + " s");
              }),
              "0 after 4 attempts, a pause before each");
}

// Two processes look at one switch.
TEST(Start, ProcessesShareTheSwitch)
{
    EXPECT_EQ(in_child([] { return std::to_string(ddal_bcm_port_egress_shaping_set(18, 1000, 20)); }), "0");
    EXPECT_EQ(in_child([] {
                  uint32_t limit = 0, burst = 0;
                  ddal_bcm_port_egress_shaping_get(18, &limit, &burst);
                  return std::to_string(limit) + " " + std::to_string(burst);
              }),
              "1000 20");
}

// Records of the SDK differ by release in size and layout.
TEST(Start, RecordsOfEveryRelease)
{
    for (const std::string release : {"6.5.16", "6.5.20", "6.5.24", "6.5.27", "old"}) {
        ctl("switch release " + release);
        ctl("switch rules clear");
        EXPECT_EQ(in_child([&] {
                      // The library knows no field rules of the old release: a product brings its own.
                      product = release == "old" ? Product::kOwnRules : Product::kNone;
                      ddal_eth_switch_mac_entry macs[4];
                      ddal_eth_switch_translation translations[4];
                      const uint8_t mac[6] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
                      uint16_t h = 0;
                      uint32_t size = 0;
                      std::string text;
                      text += std::to_string(ddal_bcm_vlan_translation_add(19, 100, 5));
                      text += std::to_string(ddal_bcm_default_svlan_set(19, 6));
                      text += std::to_string(ddal_bcm_add_static_arl_entry(19, mac, 44));
                      size = 4;
                      text += std::to_string(ddal_bcm_vlan_translation_get(19, translations, &size));
                      text += " " + std::to_string(size) + " " + std::to_string(translations[0].cvlan) + "-" +
                              std::to_string(translations[0].svlan);
                      size = 4;
                      text += " " + std::to_string(ddal_bcm_egress_translations_get(19, translations, &size));
                      text += " " + std::to_string(size) + " " + std::to_string(translations[0].cvlan) + "-" +
                              std::to_string(translations[0].svlan);
                      ddal_bcm_default_svlan_get(19, &h);
                      text += " default " + std::to_string(h);
                      size = 4;
                      text += " " + std::to_string(ddal_bcm_get_mac_addresses(19, macs, &size, 1));
                      text += " " + std::to_string(size) + " " + std::to_string(macs[0].vlan) + " " +
                              (memcmp(macs[0].mac, mac, 6) == 0 ? "same" : "another");
                      text += " " + std::to_string(ddal_bcm_remove_static_arl_entry(19, mac, 44));
                      text += std::to_string(ddal_bcm_vlan_translation_remove(19, 100, 5));
                      return text + std::to_string(ddal_bcm_default_svlan_remove(19));
                  }),
                  "0000 1 100-5 0 1 100-5 default 6 0 1 44 same 000")
            << release;
        EXPECT_EQ(ctl("switch rules").find("entry 18 group 1 q12=18/-1 q90=0/1") != std::string::npos, release != "old")
            << release;
    }
    ctl("switch release 6.5.16");
}

// Another release in the process or in the service is told in one line of its own.
TEST(Start, ReleasesThatDoNotFitAreNamed)
{
    const std::string end =
        "|initialize_eth_switch: Error installing default IFP field groups and entries"
        "|open_bcm_switch: cannot open Broadcom switch|-1001|open_bcm_switch: cannot open Broadcom switch";
    const std::string groups = "-1001|ddal_bcm_ifp_install_default_field_groups: ";
    EXPECT_EQ(opening_fails_with([] { ctl("switch release old"); }),
              groups + "unknown release of the switch SDK: its records of field rules have 260 bytes" + end);
    EXPECT_EQ(opening_fails_with([] { ctl("switch release 6.5.24 6.5.27"); }),
              groups +
                  "the switch's service does not know this SDK's records of field rules (236 bytes): it is of "
                  "another release" +
                  end);
    ctl("switch release 6.5.16");
}

// Whatever an installer cannot do, it undoes, and the next process goes on from there.
TEST(Start, InstallersLeaveNoHalves)
{
    ctl("switch rules clear");
    ASSERT_EQ(in_child(opened), "0");
    const std::string complete = ctl("switch rules");
    for (const auto &[call, times] : {std::pair{"bcm_field_group_config_create", 5},
                                      {"bcm_field_entry_multi_get", 4},
                                      {"bcm_port_gport_get", 200},
                                      {"bcm_field_entry_create_id", 117},
                                      {"bcm_field_qualify_InPort", 116},
                                      {"bcm_field_qualify_VlanFormat", 116},
                                      {"bcm_field_action_add", 1}}) {
        const int step = times < 20 ? 1 : 29;
        for (int nth = 0; nth < times; nth += step) {
            ctl("switch rules clear");
            ctl("switch fail " + std::string(call) + " -11 1 " + std::to_string(nth));
            EXPECT_EQ(in_child(opened), "-1001") << call << " " << nth;
            ctl("switch heal " + std::string(call));
            std::istringstream rules(ctl("switch rules"));
            std::map<int, int> entries; // by fifty numbers
            for (std::string word, line; std::getline(rules, line);)
                if (line.rfind("entry ", 0) == 0)
                    ++entries[std::stoi(line.substr(6)) / 50];
            for (const auto &[fifty, count] : entries)
                EXPECT_EQ(count, fifty < 4 ? 29 : 1) << call << " " << nth;
            EXPECT_EQ(in_child(opened), "0") << call << " " << nth;
            EXPECT_EQ(ctl("switch rules"), complete) << call << " " << nth;
        }
    }
}

// A process that ended in the middle leaves entries without qualifiers; the next one finishes them before they are
// used.
TEST(Start, FinishesWhatAnotherProcessBegan)
{
    ctl("switch rules clear");
    ASSERT_EQ(in_child(opened), "0");
    const std::string complete = ctl("switch rules");
    in_child([] {
        const auto call = [](const char *name, int entry) {
            return reinterpret_cast<int (*)(int, int)>(dlsym(RTLD_DEFAULT, name))(0, entry);
        };
        opened();
        return std::to_string(call("bcm_field_qualify_clear", 18) + call("bcm_field_entry_destroy", 68));
    });
    EXPECT_NE(ctl("switch rules"), complete);
    EXPECT_EQ(in_child(opened), "0");
    EXPECT_EQ(ctl("switch rules"), complete);
}

// Rules outlive the process that made them.
TEST(Start, TheSwitchHoldsTheRules)
{
    EXPECT_EQ(in_child([] { return std::to_string(ddal_eth_switch_set_port_mapping_mode(2, 18, 1)); }), "0");
    EXPECT_EQ(in_child([] {
                  uint32_t mode = 0, queue = 0;
                  ddal_eth_switch_get_port_mapping_mode(2, 18, &mode);
                  ddal_eth_switch_get_port_default_cosq(2, 18, &queue);
                  return std::to_string(mode) + " " + std::to_string(queue);
              }),
              "1 7");
    EXPECT_EQ(in_child([] { return std::to_string(ddal_eth_switch_set_port_mapping_mode(2, 18, 0)); }), "0");
}

TEST(Start, TwoProcessesAtOnceMakeEachEntryOnce)
{
    ctl("switch rules clear");
    ASSERT_EQ(in_child(opened), "0");
    const std::string complete = ctl("switch rules");
    for (int round = 0; round < 20; ++round) {
        ctl("switch rules clear");
        const auto start = [] { return start_child([] { return opened() == "0" ? 0 : 1; }); };
        const pid_t first = start();
        const pid_t second = start();
        EXPECT_EQ(wait_for_child(first), 0);
        EXPECT_EQ(wait_for_child(second), 0);
        EXPECT_EQ(ctl("switch rules"), complete);
    }
}
