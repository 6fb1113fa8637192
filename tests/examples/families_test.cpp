// The family pages on a board: their examples print the output shown, and their commands work.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/program.h"

using namespace testing_board;
using testing::HasSubstr;

namespace {

struct Example {
    const char *name;
    const char *board; // control command that runs before the example
    const char *line;
};

constexpr Example kExamples[] = {
    {"accounts", "", "password set, root access not restricted\n"},
    {"board", "", "board type 9, serial number 0100000001, software R4.2\neth0 is 02:00:5e:10:00:10\n"},
    {"boot", "", "partition 53 is active\nthe next reset boots partition 54\n"},
    {"cpld", "", "register 0x10 holds 0x5a\n"},
    {"dfe", "", "1f 22 33 44\n"},
    {"dma", "", "a block at 0xa0000000\n"},
    {"eth_switch", "", "port 14: 100000 kbit/s, S-VLAN 7\n"},
    {"files_and_programs", "", "board\nand a line from a program\n"},
    {"flash", "", "file system 54 is mounted for writing\n"},
    {"fpga", "fpga set 0x0 0x17010203", "FPGA version 0x17010203, register 0x1254\n"},
    {"frame", "", "frame number agrees, time goes on\n"},
    {"leds", "", "the status LED blinks green\n"},
    {"memory", "aif set 0x2620018 0xb981", "0x2620018 holds 0xb981\n"},
    {"phy", "", "the link of device 0 is up\nat 1000 Mb/s\n"},
    {"results", "", "-22: Invalid argument\n"},
    {"rf_card", "", "the RF card is ready\n"},
    {"rf_fpga", "", "0x11 0x22\n"},
    {"rp3", "aif broken", "the links are not healthy\nno alarm\n"},
    {"service", "", "alive, after 0 days"},
    {"sfp", "", "the module is from VIRTUAL BOARD   \nit has "},
    {"ssh", "", "the daemon runs with the new settings\n"},
    {"store", "", "start number 1\n"},
    {"switch_shell", "switch-shell answer 0 42 frames", "42 frames\nthe command succeeded\n"},
    {"system_start", "", "settings are back\n"},
    {"timers", "", "the timer came and went, jitter cleaner status 1\n"},
};

} // namespace

TEST(FamilyExamples, PrintTheOutputOfTheirPages)
{
    for (const Example &example : kExamples) {
        SCOPED_TRACE(example.name);
        if (*example.board)
            ctl(example.board);
        const Finished run = run_program({std::string{FAMILY_PROGRAMS} + "/" + example.name});
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_THAT(run.out, HasSubstr(example.line));
    }
}

// Every example checks every result: with a failing device its exit status is 1.
TEST(FamilyExamples, FailWhenTheirDeviceDoes)
{
    const std::pair<const char *, const char *> kBroken[] = {
        {"cpld", "open:/dev/cpld-usr count=0 errno=EIO"},
        {"dfe", "pwrite:/dev/dfe nth=2 errno=EIO"},
        {"fpga", "ioctl:/dev/fpga_usr errno=EIO"},
        {"frame", "ioctl:/dev/fpga_frame errno=EIO"},
        {"leds", "open:/sys/class/cpld-usr/cpld-usr/st_led nth=2 errno=EIO"},
        {"rf_fpga", "flock:/dev/fpga_rf0 errno=EIO"},
        {"timers", "ioctl:/dev/emtimer nth=2 errno=EIO"},
    };
    for (const auto &[name, rule] : kBroken) {
        SCOPED_TRACE(name);
        const Fault fault(rule);
        EXPECT_EQ(run_program({std::string{FAMILY_PROGRAMS} + "/" + name}).status, 1);
        EXPECT_GE(fault.fired(), 1u);
    }
}

TEST(FamilyExamples, AreAllRun)
{
    std::set<std::string> built;
    for (const auto &entry : std::filesystem::directory_iterator(FAMILY_PROGRAMS))
        built.insert(entry.path().filename());
    std::set<std::string> run;
    for (const Example &example : kExamples)
        run.insert(example.name);
    EXPECT_EQ(built, run);
}

namespace {

// Returns the commands in the last section of a page.
std::vector<std::string> commands_to_try(const std::filesystem::path &page)
{
    std::ifstream file(page);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    text.erase(0, text.find("## Try it"));
    std::vector<std::string> commands;
    const std::regex quoted("`((ddalctl|vboard ctl) [^`]*)`");
    for (std::sregex_iterator at(text.begin(), text.end(), quoted), end; at != end; ++at)
        commands.push_back((*at)[1]);
    return commands;
}

// Reports a command that runs until it is interrupted, or needs input that a page cannot supply.
bool needs_somebody(const std::string &command)
{
    return std::regex_search(command, std::regex(" (-*watch|events|records|upgrade|password set)\\b"));
}

} // namespace

TEST(FamilyPages, NameCommandsThatWork)
{
    unsigned tried = 0;
    const std::set<std::filesystem::path> pages{std::filesystem::directory_iterator(FAMILY_PAGES), {}};
    for (const auto &page : pages) {
        for (const std::string &command : commands_to_try(page)) {
            if (needs_somebody(command))
                continue;
            SCOPED_TRACE(command);
            ++tried;
            if (command.starts_with("vboard ctl ")) {
                EXPECT_NO_THROW(ctl(command.substr(strlen("vboard ctl "))));
                continue;
            }
            std::vector<std::string> words = words_of(command);
            words[0] = DDALCTL_PROGRAM;
            const Finished run = run_program(words);
            EXPECT_EQ(run.status, 0) << run.err;
        }
    }
    EXPECT_GT(tried, 40u);
}
