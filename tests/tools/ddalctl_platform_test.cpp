// ddalctl on SFP modules, LEDs, flash file systems and the boot loader.
#include <csignal>
#include <ddal/rp3.h>
#include <semaphore.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/board_file.h"
#include "support/waiting.h"
#include "tools/ddalctl.h"

using namespace testing_board;

TEST(DdalctlSfp, ShowsAModuleWithItsAlarms)
{
    ctl("sfp plug 1 dump " SFP_MODULES "/cwdm-1571nm-both");
    const Json module = ddalctl_json("sfp show 1");
    EXPECT_EQ(module.at("vendor"), "TESTBENCH WDM 16");
    EXPECT_EQ(module.at("connector"), "vendor-specific");
    EXPECT_EQ(module.at("wavelength"), 1571);
    EXPECT_EQ(module.at("rx-los"), true);
    const Json temperature = module.at("diagnostics").at(0);
    EXPECT_EQ(temperature, Json::parse(R"({"quantity": "temperature", "value": -19.5, "unit": "C", "alarm": "low",
                                           "warning": "low"})"));

    ctl("sfp plug 1 dump " SFP_MODULES "/dac-no-diagnostics");
    const Finished plain = ddalctl("--json sfp show 1");
    EXPECT_EQ(document_of(plain).at("diagnostics-interface"), nullptr);
    EXPECT_EQ(plain.err, ""); // missing diagnostics are not a failure

    ctl("sfp pull 1");
    EXPECT_EQ(ddalctl("sfp show 1").status, 3);
    EXPECT_EQ(ddalctl("sfp show 3").status, 2);
}

TEST(DdalctlSfp, FollowsLinesAndMeasurements)
{
    ctl("sfp plug 1 describe temperature=40");
    const std::vector<Json> events = events_of(ddalctl("--json sfp watch 1 --count 4 --interval 10"));
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[0].at("present"), true);
    EXPECT_EQ(events[3].at("temperature"), 40.0);
}

// A process that is killed while it writes to the link log leaves the log locked for all other processes.
TEST(DdalctlAif, FreesOnlyTheLogOfAKilledProcess)
{
    EXPECT_EQ(ddalctl("aif log first").status, 0);
    EXPECT_EQ(ddalctl_json("aif unlock").at("freed"), false);

    const Fault slow("fflush:/var/log/* delay=600s");
    const pid_t writer = fork();
    if (writer == 0) {
        ddal_rp3_validate_aif("second", 1, nullptr, 0);
        _exit(0);
    }
    wait_until([&] { return slow.fired() == 1; });
    const Finished refused = ddalctl("--json aif unlock");
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(document_of(refused).at("error").at("name"), "EBUSY");

    kill(writer, SIGKILL);
    waitpid(writer, nullptr, 0);
    EXPECT_EQ(ddalctl_json("aif unlock").at("freed"), true);
    EXPECT_EQ(ddalctl_json("aif unlock").at("freed"), false);
    EXPECT_EQ(ddalctl("aif log third").status, 0);
}

// Commands that destroy data require consent. These have no terminal to ask for it.
TEST(DdalctlConsent, IsRequiredBeforeDataIsLost)
{
    for (const char *line : {"ffs format 1 ext4", "ffs clean 2", "boot switch 54", "boot update /x", "reboot"}) {
        put_file("/run/stub/log", "");
        const Finished run = ddalctl(line);
        EXPECT_EQ(run.status, 2) << line;
        EXPECT_THAT(run.err, testing::HasSubstr("--yes")) << line;
        EXPECT_EQ(file_content("/run/stub/log"), "") << line;
    }
    EXPECT_EQ(ddalctl("boot switch 54 --yes").status, 0);
    EXPECT_EQ(ddalctl("boot active").out, "54\n");
    EXPECT_EQ(ddalctl("ffs format 1 ext4 --yes").status, 0);
    EXPECT_EQ(ddalctl("ffs type 1").out, "ext4\n");
}

TEST(DdalctlLed, SetsAndShows)
{
    EXPECT_EQ(ddalctl("led set rf blinking-red").status, 0);
    EXPECT_EQ(ddalctl_json("led show").at("rf"), "blinking-red");
    EXPECT_EQ(ddalctl("led set rf purple").status, 2);
    EXPECT_EQ(ddalctl("led set top red").status, 2);
}
