// Watchdog, readiness, reboot: the messages that the service manager receives.
#include <cerrno>
#include <cstdlib>

#include <ddal/reset.h>
#include <ddal/system.h>
#include <ddal/watchdog.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "storage/program_sweep.h"
#include "support/board.h"
#include "support/board_file.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Removes the environment's socket and restores it at the end of the scope.
class WithoutSocket {
public:
    WithoutSocket() : name_(getenv("NOTIFY_SOCKET")) { unsetenv("NOTIFY_SOCKET"); }
    ~WithoutSocket() { setenv("NOTIFY_SOCKET", name_.c_str(), 1); }

private:
    std::string name_;
};

} // namespace

// A process starts the service only once, so this must be its first ping.
TEST(Watchdog, StartsItsServiceAndTriesAgainUntilItRuns)
{
    program_runs();
    ctl("service-manager log");
    put_file("/run/stub/fail/systemctl", "5");
    LogWatch log;
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(ddal_watchdog_ping(), -1001);
        EXPECT_THAT(log.take(), ElementsAre("3 ddal_watchdog_ping: error start software watchdog service"));
        EXPECT_EQ(program_runs(), "systemctl start swdd.service\n");
        EXPECT_EQ(ctl("service-manager log"), ""); // no message before the service runs
    }
    unlink("/run/stub/fail/systemctl");
    EXPECT_EQ(ddal_watchdog_ping(), 0);
    EXPECT_EQ(file_content("/run/systemd/units/swdd.service"), "active\n");
    EXPECT_EQ(program_runs(), "systemctl start swdd.service\n");
    EXPECT_EQ(ddal_watchdog_ping(), 0);
    EXPECT_EQ(program_runs(), "");
    EXPECT_EQ(ctl("service-manager log"), "READY=1; WATCHDOG=1\nREADY=1; WATCHDOG=1\n");
    EXPECT_EQ(ctl("service-manager show"), "ready yes\nwatchdog 2\nignored 0\n");
    EXPECT_EQ(ddal_watchdog_set_period(0), 0);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(Watchdog, ReportsAMissingListener)
{
    ASSERT_EQ(ddal_watchdog_ping(), 0);
    LogWatch log;
    {
        const WithoutSocket none;
        EXPECT_EQ(ddal_watchdog_ping(), -1001);
        EXPECT_EQ(ddal_system_notify_ready(), -1001);
        EXPECT_THAT(log.take(), ElementsAre("3 ddal_watchdog_ping: error sd_notify",
                                            "3 ddal_system_notify_ready: status data could not be sent"));
    }
    ctl("service-manager leave"); // the name of the socket stays
    EXPECT_EQ(ddal_watchdog_ping(), -1001);
    EXPECT_EQ(ddal_system_notify_ready(), -1002);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_watchdog_ping: error sd_notify",
                                        "3 ddal_system_notify_ready: sd_notify call failed: -111"));
    ctl("service-manager return");
    ctl("service-manager log");
    EXPECT_EQ(ddal_watchdog_ping(), 0);
    EXPECT_EQ(ddal_system_notify_ready(), 0);
    EXPECT_EQ(ctl("service-manager log"), "READY=1; WATCHDOG=1\nREADY=1\n");
}

TEST(Watchdog, SurvivesEveryFailure)
{
    ASSERT_EQ(ddal_watchdog_ping(), 0);
    Sweep("ddal_watchdog_ping", [] { return ddal_watchdog_ping(); })
        .when("socket", fails(-1001, {"3 ddal_watchdog_ping: error sd_notify"}))
        .when("send/EPIPE", fails(-1001, {"3 ddal_watchdog_ping: error sd_notify"}))
        .when("setsockopt", changes_nothing())
        .run();
    Sweep("ddal_system_notify_ready", [] { return ddal_system_notify_ready(); })
        .when("socket/EMFILE", fails(-1002, {"3 ddal_system_notify_ready: sd_notify call failed: -24"}))
        .when("send/EPIPE", fails(-1002, {"3 ddal_system_notify_ready: sd_notify call failed: -32"}))
        .when("setsockopt", changes_nothing())
        .run();
}

TEST(Reboot, RequestsAShutdown)
{
    const std::string begins = "6 ddal_watchdog_reboot: initialize a system reboot (graceful shutdown)";
    program_runs();
    LogWatch log;
    EXPECT_EQ(ddal_watchdog_reboot(), 0);
    EXPECT_THAT(log.take(), ElementsAre(begins));
    EXPECT_EQ(program_runs(), "shutdown -r +0 sec\n");

    const Fault none("access:/usr/sbin/reboot errno=ENOENT"); // programs lie below /usr on the board
    EXPECT_EQ(ddal_watchdog_reboot(), -1);
    EXPECT_THAT(log.take(),
                ElementsAre(begins, "4 ddal_watchdog_reboot: /sbin/reboot does not exist, aborting shutdown"));
    EXPECT_EQ(program_runs(), "");
}

TEST(Reboot, SurvivesEveryFailure)
{
    const std::string name = "ddal_watchdog_reboot: ";
    const std::string begins = "6 " + name + "initialize a system reboot (graceful shutdown)";
    ProgramStep shutdown = {"shutdown -r +0 sec", "/sbin/shutdown",
                            ends_with({"3 " + name + "/sbin/shutdown returned: %d"})};
    shutdown.earlier = {begins};
    const std::pair<const char *, long (*)()> operations[] = {
        {"ddal_watchdog_reboot", [] { return long{ddal_watchdog_reboot()}; }},
        {"ddal_reset_set", [] { return long{ddal_reset_set(DDAL_RESET_UNIT, DDAL_RESET_ACTION_RESET)}; }}};
    for (const auto &[operation, call] : operations) {
        Sweep sweep(operation, call);
        with_programs(sweep, {shutdown}).succeeds(0, {begins}).when("access", changes_nothing()).run();
    }
}

TEST(Reboot, IsTheEffectOfAResetOfTheUnit)
{
    for (const uint32_t target : {0x1010000u, 0x1010001u}) {
        program_runs();
        EXPECT_EQ(ddal_reset_set(target, 1), 0);
        EXPECT_EQ(program_runs(), "shutdown -r +0 sec\n");
    }
    LogWatch log;
    for (const auto &[target, action] : {std::pair{0x1010000u, 0u}, {0x1010000u, 2u}, {0x1010002u, 1u}, {0u, 1u}})
        EXPECT_EQ(ddal_reset_set(target, action), -ENOSYS);
    EXPECT_EQ(program_runs(), "");
    EXPECT_THAT(log.take(), IsEmpty());
}
