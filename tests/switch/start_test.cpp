// Opening the switch: every step, its line, the lasting failure. Each case runs in a separate process.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <map>
#include <set>
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
        // The next operation only reports that the switch is not open, without calling the SDK again.
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

// Returns the calls of an operation, each with the number of earlier calls of that name.
std::vector<std::string> calls_made(const std::function<int()> &operation)
{
    ctl("switch calls");
    EXPECT_EQ(operation(), 0);
    std::istringstream calls(ctl("switch calls"));
    std::map<std::string, int> made;
    std::vector<std::string> points;
    for (std::string line; std::getline(calls, line);) {
        const std::string name = line.substr(0, line.find(' '));
        points.push_back(name + " " + std::to_string(made[name]++));
    }
    return points;
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

// Installers of a product, in place of the library's or in front of them.
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

namespace {

struct Installer {
    int (*install)();
    const char *entries; // the line that ends the log of a failure
};
const Installer kInstallers[] = {
    {ddal_bcm_ifp_install_default_field_groups, ""},
    {ddal_bcm_ifp_install_default_untagged_entries,
     "ddal_bcm_ifp_install_default_untagged_entries: installing field entries 0 to 49"},
    {ddal_bcm_ifp_install_default_tagged_entries,
     "ddal_bcm_ifp_install_default_tagged_entries: installing field entries 50 to 99"},
    {ddal_bcm_ifp_install_default_untagged_dstmac_entries,
     "ddal_bcm_ifp_install_default_untagged_dstmac_entries: installing field entries 100 to 149"},
    {ddal_bcm_ifp_install_default_tagged_dstmac_entries,
     "ddal_bcm_ifp_install_default_tagged_dstmac_entries: installing field entries 150 to 199"},
    {ddal_bcm_ifp_install_default_tunnel_drop_entry, ""},
};

// Prepares an installer: the first installer has made the groups.
void prepare_for(int installer)
{
    if (installer > 0)
        kInstallers[0].install();
}

} // namespace

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

// The service is out of resources. During the second in which the attachment began, the first such answer ends it.
// Later the attachment continues until the service has resources.
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

// Two processes read one switch.
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
                      // The library lacks field rules for the old release, so a product brings them.
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

// Another release in the process or in the service causes a separate line.
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

// An installer undoes its incomplete work: its calls fail in turn, every eleventh of the many, or all of them under
// `./dev campaign switch_start`.
TEST(Start, InstallersLeaveNoHalves)
{
    const size_t step = getenv("EVERY_CALL") ? 1 : 11;
    const std::vector<std::string> report = in_child([step] {
        std::vector<std::string> faults;
        opened();
        const int installers = std::size(kInstallers);
        int points = 0;
        for (int number = 0; number < installers; ++number) {
            ctl("switch rules clear");
            prepare_for(number);
            const std::string before = ctl("switch rules");
            const auto calls = calls_made([&] { return kInstallers[number].install(); });
            const std::string after = ctl("switch rules");
            const size_t every = calls.size() < 10 ? 1 : step;
            for (size_t at = static_cast<size_t>(number) % every; at < calls.size(); at += every) {
                const std::string &point = calls[at];
                ctl("switch rules clear");
                prepare_for(number);
                const std::string name = point.substr(0, point.find(' '));
                ctl("switch fail " + name + " -11 1" + point.substr(name.size()));
                const int failed = kInstallers[number].install();
                const bool undone = ctl("switch rules") == before;
                if (failed != -1001 || !undone || kInstallers[number].install() != 0 || ctl("switch rules") != after)
                    faults.push_back(std::to_string(number) + ", " + point);
                ++points;
            }
        }
        faults.push_back(std::to_string(points) + " failing calls");
        return faults;
    });
    EXPECT_EQ(report, std::vector<std::string>{step == 1 ? "559 failing calls" : "59 failing calls"});
}

// The SDK's results. Some mean that another process was first or that the device lacks a feature; the others end the
// installation with their text.
TEST(Start, InstallersDistinguishTheResults)
{
    const std::map<int, std::string> kTexts = {{-4, "Invalid parameter"},
                                               {-7, "Entry not found"},
                                               {-8, "Entry exists"},
                                               {-10, "Operation still running"},
                                               {-14, "No resources for operation"},
                                               {-15, "Invalid configuration"},
                                               {-16, "Feature unavailable"},
                                               {-18, "Invalid port"}};
    struct Failing {
        int installer;
        const char *call;
        int nth;
        std::string line;       // without the text of the result
        std::set<int> harmless; // results that are not a failure
        int special = 0;        // a result with a separate line
        std::string special_line = {};
    };
    const std::string groups = "ddal_bcm_ifp_install_default_field_groups: ";
    const std::string drop = "ddal_bcm_ifp_install_default_tunnel_drop_entry: installing field entry 200 failed: ";
    const std::string first = "qualify_port: bcm_field_qualify_InPort failed on field entry ";
    const Failing kFailing[] = {
        {0,
         "bcm_field_group_config_create",
         0,
         groups + "creating field group 1 failed: ",
         {-8},
         -16,
         groups + "the switch's service does not know this SDK's records of field rules (192 bytes): it is of another "
                  "release"},
        {0, "bcm_field_group_config_create", 4, groups + "creating field group 5 failed: ", {-8, -14, -16}},
        {1, "bcm_field_entry_multi_get", 0, "read: bcm_field_entry_multi_get failed on field group 1: ", {-7}},
        {2, "bcm_port_gport_get", 49, "has_port: bcm_port_gport_get failed on port 49: ", {-18}},
        {3,
         "bcm_field_entry_create_id",
         28,
         "ensure_entry: bcm_field_entry_create_id failed on field entry 129: ",
         {},
         -8,
         first + "129: Entry not found"}, // the other process has destroyed it since then
        {4, "bcm_field_qualify_InPort", 28, first + "179: ", {}},
        {4,
         "bcm_field_qualify_VlanFormat",
         0,
         "qualify_tag: bcm_field_qualify_VlanFormat failed on field entry 151: ",
         {}},
        {5, "bcm_field_entry_create_id", 0, drop, {-7}, -8, drop + "Entry not found"},
        {5, "bcm_field_action_add", 0, drop, {-8}},
    };
    EXPECT_EQ(in_child([&] {
                  std::vector<std::string> faults;
                  opened();
                  for (const Failing &each : kFailing)
                      for (const auto &[code, text] : kTexts) {
                          ctl("switch rules clear");
                          prepare_for(each.installer);
                          const std::string before = ctl("switch rules");
                          ctl(std::string("switch fail ") + each.call + " " + std::to_string(code) + " 1 " +
                              std::to_string(each.nth));
                          std::vector<std::string> expected;
                          if (!each.harmless.contains(code))
                              expected.push_back("3 " + (code == each.special ? each.special_line : each.line + text));
                          const Installer &installer = kInstallers[each.installer];
                          if (!expected.empty() && *installer.entries)
                              expected.push_back(std::string("3 ") + installer.entries + " failed");
                          LogWatch log;
                          const int result = installer.install();
                          if (log.take() != expected || result != (expected.empty() ? 0 : -1001) ||
                              (result != 0 && ctl("switch rules") != before))
                              faults.push_back(each.call + (" " + std::to_string(code)));
                      }
                  return faults;
              }),
              std::vector<std::string>{});
}

// A process that ended midway leaves entries without qualifiers. The next one completes them before their use.
TEST(Start, FinishesTheWorkOfAnotherProcess)
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
