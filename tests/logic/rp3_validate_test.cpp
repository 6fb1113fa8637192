#include <cerrno>
#include <fstream>
#include <iterator>
#include <unistd.h>

#include <ddal/rp3.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/board_file.h"
#include "support/in_child.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

using Lines = std::vector<std::string>;

const std::string kBoardType = "/proc/device-tree/board-identity/board-type";
const std::string kLog = "/var/log/kvbinit.log";

// The lines of a healthy board. In the board's model the value of a link register is the low bits of its address.
const std::string kFpgaLines =
    "0x00140900 <0x00000007> - RP1 and SFN status\n"
    "0x001402A8 <0x00000011> - UL Tick adj\n"
    "0x00140890 <0x00000012> - number of frames with 140 symbols\n"
    "0x00140894 <0x00000013> - number of frames < 140 symbols\n"
    "0x00140898 <0x00000014> - number of frames > 140 symbols\n"
    "0x00140864 <0x00000015> - number of RP3 messages received from K2 for antenna main\n"
    "0x00140868 <0x00000016> - number of RP3 messages received from K2 for antenna diversity\n"
    "0x0014086C <0x00000017> - number of RP3 messages errors for antenna main\n"
    "0x00140870 <0x00000018> - number of RP3 messages errors for antenna diversity\n";
const std::string kAifLines = "0x01F40300 <0x00000202> - alarm register showing RP1/RP3 states\n"
                              "0x01F48020 <0x00008020> - RP1 capture type\n"
                              "0x01F4C000 <0x0000C000> - TM_LK_CFG\n";
const struct {
    const char *label;
    unsigned upper[2], lower[2];
} kLinks[] = {
    {"PI_WINDOW_MIN", {0x48134, 0x48140}, {0x48104, 0x48110}},
    {"Pi meas", {0x48138, 0x48144}, {0x48108, 0x48114}},
    {"Pi window max", {0x48130, 0x4813C}, {0x48100, 0x4810C}},
    {"Rx RP3 sync state", {0x52014, 0x52814}, {0x50014, 0x50814}},
    {"Tx RP3 sync state", {0x4E038, 0x4E838}, {0x4C038, 0x4C838}},
    {"Delta offset per link", {0x48560, 0x48568}, {0x48540, 0x48548}},
    {"Number of Line Code Violations", {0x52018, 0x52818}, {0x50018, 0x50818}},
    {"EE_LK_IRS_A", {0x40200, 0x40280}, {0x40000, 0x40080}},
    {"EE_LK_IRS_B", {0x4022C, 0x402AC}, {0x4002C, 0x400AC}},
};

std::string link_lines(bool upper)
{
    std::string lines;
    for (const auto &link : kLinks) {
        for (const unsigned address : upper ? link.upper : link.lower) {
            char line[100];
            snprintf(line, sizeof line, "0x01F%05X <0x%08X> - %s\n", address, address & 0xFFFF, link.label);
            lines += line;
        }
    }
    return lines;
}

std::string healthy_text(bool upper)
{
    return kFpgaLines + kAifLines + link_lines(upper);
}

void make_board(const std::string &state)
{
    constexpr const char *kCounters[] = {"0x1402A8", "0x140890", "0x140894", "0x140898",
                                         "0x140864", "0x140868", "0x14086C", "0x140870"};
    for (size_t i = 0; i < std::size(kCounters); ++i)
        ctl(std::string("fpga set ") + kCounters[i] + " " + std::to_string(0x11 + i));
    ctl("aif " + state);
}

std::string complaint(const std::string &address, const std::string &value, const std::string &expected)
{
    return "6 ddal_rp3_validate_aif: Register " + address + " has value " + value + " instead of " + expected +
           ".  If AIF has not been configured, this is expected.";
}

// Returns result, log lines and text of a snapshot in a process that has not yet read its board type.
Lines snapshot_on_board(unsigned type)
{
    const KeptFile kept(kBoardType);
    put_cells(kBoardType, {type - 1});
    return in_child([] {
        char text[2048] = "";
        LogWatch log;
        Lines seen{std::to_string(ddal_rp3_validate_aif("", 0, text, sizeof text))};
        for (const std::string &line : log.take())
            seen.push_back(line);
        seen.push_back(text);
        return seen;
    });
}

Lines split(const std::string &text)
{
    Lines lines;
    for (size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1)
        lines.push_back(text.substr(at, end - at));
    lines.emplace_back(); // the text after the last newline
    return lines;
}

TEST(LinkSnapshot, ReadsTheLinksThatTheBoardTypeWires)
{
    make_board("healthy");
    for (unsigned type = 1; type <= 9; ++type) {
        const bool upper = type == 4 || type == 6 || type == 8 || type == 9;
        Lines expected = split(healthy_text(upper));
        expected.insert(expected.begin(), "0");
        EXPECT_EQ(snapshot_on_board(type), expected) << type;
    }
}

TEST(LinkSnapshot, ReportsBothRegistersOfABrokenBoard)
{
    make_board("broken");
    for (const unsigned type : {1u, 9u}) {
        const Lines seen = snapshot_on_board(type);
        ASSERT_GT(seen.size(), 3u);
        EXPECT_EQ(seen[0], "-1001");
        EXPECT_EQ(seen[1], complaint("0x00140900", "0x00000005", "0x00000007"));
        EXPECT_EQ(seen[2], complaint("0x01F40300", "0x00000200", "0x00000202"));
        EXPECT_EQ(seen[3], "0x00140900 <0x00000005> - RP1 and SFN status");
        EXPECT_EQ(seen.size(), 3 + split(healthy_text(false)).size());
    }
    ctl("aif healthy");
}

TEST(LinkSnapshot, ChecksOnlyTheBitsOfAHealthyLink)
{
    make_board("healthy");
    ctl("fpga set 0x140900 0xFFFFFFFF");
    ctl("aif set 0x1F40300 0x20F");
    EXPECT_EQ(ddal_rp3_validate_aif("", 0, nullptr, 0), 0);
    ctl("aif set 0x1F40300 0x002");
    EXPECT_EQ(ddal_rp3_validate_aif("", 0, nullptr, 0), -1001);
    ctl("aif healthy");
}

TEST(LinkSnapshot, CutsTheTextToTheCallersBuffer)
{
    make_board("healthy");
    char text[17] = "................";
    EXPECT_EQ(ddal_rp3_validate_aif("", 0, text, 0), 0);
    EXPECT_STREQ(text, "................");
    EXPECT_EQ(ddal_rp3_validate_aif("", 0, text, 16), 0);
    EXPECT_STREQ(text, "0x00140900 <0x0");
}

TEST(LinkSnapshot, EndsAtOnceWithoutTheFirstRegister)
{
    make_board("healthy");
    char text[16] = "before";
    const Fault fault("pread:/dev/fpga_usr short=0");
    LogWatch log;
    EXPECT_EQ(ddal_rp3_validate_aif("x", 1, text, sizeof text), -1001);
    EXPECT_STREQ(text, "before");
    EXPECT_EQ(log.take(), (Lines{"3 ddal_fpga_read: fpga driver returned unexpected len on fpga_usr_read",
                                 "3 sprintf_read_fpga_reg: Reading FPGA register 0x00140900 failed."}));
    EXPECT_NE(access(kLog.c_str(), F_OK), 0);
}

// A register that cannot be read loses its line. Only DDAL_ERR_FAILURE counts as a failed read.
TEST(LinkSnapshot, ContinuesWithoutARegister)
{
    make_board("healthy");
    char text[2048];
    const auto take = [&](int expected) {
        LogWatch log;
        EXPECT_EQ(ddal_rp3_validate_aif("", 0, text, sizeof text), expected);
        return log.take();
    };
    {
        const Fault fault("pread:/dev/fpga_usr nth=2 short=0");
        EXPECT_EQ(take(-1001), (Lines{"3 ddal_fpga_read: fpga driver returned unexpected len on fpga_usr_read",
                                      "3 sprintf_read_fpga_reg: Reading FPGA register 0x001402A8 failed."}));
        EXPECT_THAT(text, AllOf(testing::Not(HasSubstr("UL Tick")), HasSubstr("number of frames with 140")));
    }
    {
        const Fault fault("pread:/dev/fpga_usr nth=2 errno=EIO");
        EXPECT_EQ(take(0), Lines{"3 ddal_fpga_read: fpga read failed: Input/output error"});
        EXPECT_THAT(text, HasSubstr("0x001402A8 <0x00000000> - UL Tick adj\n"));
    }
    {
        const Fault fault("open:/dev/mem errno=EACCES"); // the alarm register is neither read nor checked
        EXPECT_EQ(take(-1001), (Lines{"3 ddal_mem_map_addr: error open /dev/mem: Permission denied",
                                      "3 read_value_from_map_addr: address mapping failed",
                                      "3 sprintf_read_k2_dsp_reg: Reading K2-DSP register 0x01F40300 failed."}));
        EXPECT_THAT(text, testing::Not(HasSubstr("alarm register")));
    }
}

TEST(LinkSnapshot, LeavesNothingBehindAfterAnyFailure)
{
    make_board("healthy");
    // Every register is opened, read and closed, or mapped and unmapped. The cases above check the log lines.
    const auto any = [](const Injected &injected, const Outcome &) {
        const bool counts = injected.path == "/dev/mem" || injected.end;
        Outcome outcome{counts ? -1001 : 0, {"3 *"}};
        if (injected.path == "/dev/mem")
            outcome.lines = {"3 ddal_mem_map_addr*", "3 read_value_from_map_addr*", "3 sprintf_read_k2_dsp_reg*"};
        else if (injected.end)
            outcome.lines = {"3 ddal_fpga_read*", "3 sprintf_read_fpga_reg*"};
        return outcome;
    };
    const auto first = [](const Injected &injected, const Outcome &) {
        if (injected.end)
            return Outcome{-1001, {"3 ddal_fpga_read*", "3 sprintf_read_fpga_reg*"}};
        return Outcome{-1001, {"3 ddal_fpga_read*", complaint("0x00140900", "0x00000000", "0x00000007")}};
    };
    Sweep("ddal_rp3_validate_aif", [] { return ddal_rp3_validate_aif("", 0, nullptr, 0); })
        .when("open:/dev/fpga_usr", in_turn({first, first, any}))
        .when("pread/EIO", in_turn({first, any}))
        .when("pread/end", in_turn({first, any}))
        .when("open:/dev/mem", any)
        .when("mmap", any)
        .run();
}

std::string entry_pattern(const std::string &event)
{
    return "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6} " + event + " ";
}

TEST(LinkLog, KeepsEntriesWithTheirTimeAndLabel)
{
    unlink(kLog.c_str());
    make_board("healthy");
    EXPECT_EQ(ddal_rp3_validate_aif("start", 1, nullptr, 0), 0);
    ctl("aif broken");
    EXPECT_EQ(ddal_rp3_validate_aif("after", 1, nullptr, 0), 0); // the entry was still written
    ctl("aif healthy");
    const Lines lines = split(file_content(kLog));
    const size_t each = split(healthy_text(true)).size() + 1;
    ASSERT_EQ(lines.size(), 2 * each + 1);
    EXPECT_THAT(lines[0], MatchesRegex(entry_pattern("start")));
    EXPECT_EQ(lines[1], "0x00140900 <0x00000007> - RP1 and SFN status");
    EXPECT_EQ(lines[each - 1], "");
    EXPECT_THAT(lines[each], MatchesRegex(entry_pattern("after")));
    EXPECT_EQ(lines[each + 1], "0x00140900 <0x00000005> - RP1 and SFN status");
}

TEST(LinkLog, DropsTheOldestExcessBytes)
{
    make_board("healthy");
    const std::string event = "here";
    const size_t added = event.size() + healthy_text(true).size();
    for (const size_t over : {0u, 1u, 100u, 101u}) {
        const size_t old_size = 102400 - added + over;
        std::string old;
        for (int i = 0; old.size() < old_size; ++i)
            old += std::to_string(i) + ",";
        old.resize(old_size);
        put_file(kLog, old);
        EXPECT_EQ(ddal_rp3_validate_aif(event.c_str(), 1, nullptr, 0), 0);
        const std::string now = file_content(kLog);
        EXPECT_EQ(now.size(), old_size - over + added + 30);
        EXPECT_EQ(now.substr(0, old_size - over), old.substr(over)) << over;
        EXPECT_NE(access((kLog + ".tmp").c_str(), F_OK), 0);
    }
    // A label that is too long by itself is the only text left.
    put_file(kLog, "old");
    EXPECT_EQ(ddal_rp3_validate_aif(std::string(102400, 'x').c_str(), 1, nullptr, 0), 0);
    EXPECT_THAT(file_content(kLog).substr(0, 40), MatchesRegex("[0-9]{4}-.* x*"));
}

TEST(LinkLog, StaysWithinItsSizeWithTenProcesses)
{
    constexpr int kProcesses = 10, kEntries = 12; // 120 entries of 1.6 kB cut the log several times
    unlink(kLog.c_str());
    make_board("healthy");
    std::vector<pid_t> children;
    for (int process = 0; process < kProcesses; ++process)
        children.push_back(start_child([process] {
            const std::string event = "process-" + std::to_string(process);
            for (int i = 0; i < kEntries; ++i)
                if (ddal_rp3_validate_aif(event.c_str(), 1, nullptr, 0) != 0)
                    return 1;
            return 0;
        }));
    for (const pid_t child : children)
        EXPECT_EQ(wait_for_child(child), 0);

    const std::string log = file_content(kLog);
    EXPECT_LE(log.size(), 102430u);
    EXPECT_GT(log.size(), 95000u);
    // Only the first entry may be cut.
    const std::string text = healthy_text(true) + "\n";
    const std::string pattern = entry_pattern("process-[0-9]");
    size_t at = log.find("\n\n") + 2;
    int whole = 0;
    for (; at < log.size(); ++whole) {
        const size_t head = log.find('\n', at);
        ASSERT_THAT(log.substr(at, head - at), MatchesRegex(pattern)) << at;
        ASSERT_EQ(log.substr(head + 1, text.size()), text) << at;
        at = head + 1 + text.size();
    }
    EXPECT_GT(whole, 50);
}

} // namespace
