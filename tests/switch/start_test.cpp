// Opening the switch: every step, its line, the lasting failure. Each case has a process of its own.
#include <atomic>
#include <ctime>
#include <gtest/gtest.h>
#include <sstream>
#include <thread>
#include <vector>

#include <ddal/bcm.h>
#include <ddal/bcm_open.h>

#include "support/board.h"
#include "support/in_child.h"
#include "support/log_watch.h"

using namespace testing_board;

namespace {

bool installer_fails = false;

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

} // namespace

// A product's own installer, in place of the library's.
extern "C" int ddal_bcm_ifp_install_default_tagged_entries(void)
{
    return installer_fails ? -1 : 0;
}

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
    EXPECT_EQ(opening_fails_with([] { installer_fails = true; }),
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
