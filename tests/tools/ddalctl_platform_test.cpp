// ddalctl on SFP modules, LEDs, flash file systems and the boot loader.
#include <algorithm>
#include <csignal>
#include <ddal/rp3.h>
#include <filesystem>
#include <fstream>
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
    EXPECT_EQ(module.at("thresholds").at(0),
              Json::parse(R"({"quantity": "temperature", "low-alarm": -5.0, "low-warning": 0.0, "high-warning": 70.0,
                              "high-alarm": 75.0, "margin": -14.5, "unit": "C"})"));

    ctl("sfp plug 1 dump " SFP_MODULES "/dac-no-diagnostics");
    const Finished plain = ddalctl("--json sfp show 1");
    EXPECT_EQ(document_of(plain).at("diagnostics-interface"), nullptr);
    EXPECT_EQ(plain.err, ""); // missing diagnostics are not a failure

    // External calibration: an alarm threshold with the bytes of the measurement equals the measurement.
    ctl("sfp plug 1 dump " SFP_MODULES "/lx-1310nm-external");
    const std::string raw = ddalctl_json("sfp read 1 diag 96 10").at("bytes").at(0).at("bytes");
    for (size_t i = 0; i < 5; i++)
        ctl("sfp poke 1 diag " + std::to_string(8 * i) + " " + raw.substr(4 * i, 4));
    const Json external = ddalctl_json("sfp show 1");
    for (size_t i = 0; i < 5; i++)
        EXPECT_EQ(external.at("thresholds").at(i).at("high-alarm"), external.at("diagnostics").at(i).at("value")) << i;

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

TEST(DdalctlSfp, DrawsPowerAndTemperatureOverTime)
{
    ctl("sfp plug 1 describe temperature=40");
    char folder[] = "/tmp/picture-XXXXXX";
    const std::string svg = std::string(mkdtemp(folder)) + "/watch.svg";
    const Finished lines = ddalctl("sfp watch 1 --plot --svg " + svg + " --count 6 --interval 10");
    EXPECT_EQ(lines.status, 0) << lines.err;
    EXPECT_EQ(std::count(lines.out.begin(), lines.out.end(), '\n'), 6)
        << "rows are lines where the output is not a terminal";
    std::ifstream file(svg);
    const std::string picture{std::istreambuf_iterator<char>(file), {}};
    for (const char *part : {"<svg xmlns=", "optical power (dBm)", "temperature (\u00b0C)", "time (s)",
                             ">tx high alarm ", ">rx low warning ", ">low alarm ", "</svg>"})
        EXPECT_NE(picture.find(part), std::string::npos) << part;
    EXPECT_EQ(picture.find("nan"), std::string::npos);
    EXPECT_EQ(ddalctl("sfp watch 1 --count 4 --svg /nosuch/folder/x.svg").status, 1);
    EXPECT_EQ(ddalctl("--json sfp watch 1 --plot").status, 2);

    const std::string watch = std::string(DDALCTL_PROGRAM) + " sfp watch 1 --plot --count 5 --interval 10";
    struct {
        const char *environment;
        bool draws;
        bool coloured;
    } const terminals[] = {
        {"TERM=xterm", true, true}, {"TERM=xterm NO_COLOR=1", true, false}, {"TERM=dumb", false, false}};
    constexpr const char *kOnTerminal = "import pty, sys; pty.spawn(['/bin/sh', '-c', sys.argv[1]])";
    for (const auto &terminal : terminals) {
        const std::string line = std::string("export ") + terminal.environment + "; exec " + watch;
        const std::string out = run_program({"/usr/bin/python3", "-c", kOnTerminal, line}).out;
        EXPECT_EQ(out.find("\u28c0") != std::string::npos || out.find("\u2809") != std::string::npos, terminal.draws)
            << out;
        EXPECT_EQ(out.find("\033[36m") != std::string::npos, terminal.coloured) << terminal.environment;
    }
    std::filesystem::remove_all(folder);
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
