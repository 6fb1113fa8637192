// Commands to a board: what is refused and why, and that help, completion and documents say what the commands are.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/program.h"

using namespace testing_board;
using testing::HasSubstr;

namespace {

std::string refusal(const std::string &line)
{
    try {
        ctl(line);
    } catch (const vboard::ClientError &error) {
        return error.what();
    }
    return "done";
}

std::string content_of(const std::filesystem::path &path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string vboard_says(const std::string &words)
{
    const Finished run = run_program(words_of(std::string(VBOARD_PROGRAM) + " " + words));
    EXPECT_EQ(run.status, 0) << words << ": " << run.err;
    return run.out;
}

std::string completions(const std::string &typed)
{
    const std::string script = vboard_says("--bash-completion") + "COMP_WORDS=(" VBOARD_PROGRAM " " + typed +
                               "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _vboard; echo \"${COMPREPLY[*]}\"";
    return run_program({"/bin/bash", "-c", script}).out;
}

} // namespace

TEST(Control, SaysWhatIsWrong)
{
    constexpr std::pair<const char *, const char *> kWrong[] = {
        {"fpag get 1", "no model \"fpag\"; did you mean \"fpga\"?"},
        {"fpga", "missing get, list or set; see \"vboard ctl fpga --help\""},
        {"fpga put 1 2", "\"put\" is not get, list or set"},
        {"fpga set 1", "missing a number (VALUE)"},
        {"fpga get zero", "\"zero\" is not a number (ADDRESS)"},
        {"fpga get -1", "\"-1\" is not a number"},
        {"fpga get 0x1ffffffff", "ADDRESS is at most 4294967295"},
        {"fpga get 1 2", "\"2\" is one word too many"},
        {"cpld set 4 256", "VALUE is at most 255"},
        {"frame stpo", "did you mean \"stop\"?"},
        {"link shwo", "did you mean \"show\"?"},
        {"link 99 up", "no link \"99\""},
        {"phy nowhere log", "no PHY \"nowhere\""},
        {"sfp plug 1 dmup x", "did you mean \"dump\"?"},
        {"sfp pull 3", "\"3\" is not 1 or 2"},
        {"sfp set 1 bias much", "\"much\" is not a decimal number"},
        {"sfp poke 1 id 0 abc", "is not pairs of hexadecimal digits"},
        {"switch send 14", "missing a word (FRAME)"},
        {"switch release 7", "releases of the SDK are"},
        {"rf-card fault late sometimes 1", "\"sometimes\" is not ack or response"},
    };
    for (const auto &[line, text] : kWrong)
        EXPECT_THAT(refusal(line), HasSubstr(text)) << line;
}

TEST(Control, IsHelpedCompletedAndDocumentedFromOneTable)
{
    EXPECT_THAT(vboard_says("ctl sfp --help"), HasSubstr("plug 1|2 dump FOLDER"));
    EXPECT_THAT(vboard_says("--man"), HasSubstr(".B sfp plug 1|2 dump FOLDER\n"));
    EXPECT_EQ(completions("ctl --board some/where jit"), "jitter-cleaner\n");
    EXPECT_EQ(completions("ctl frame st"), "start stop\n");
    EXPECT_EQ(completions("ctl sfp set 2 t"), "temperature tx\n");
    EXPECT_EQ(completions("ctl fpga get 0x10 x"), "\n");
    EXPECT_NE(content_of(DOCUMENTS "/virtual-board.md").find(vboard_says("--control-reference")), std::string::npos)
        << "the list of commands differs from that of vboard --control-reference";
}

TEST(Control, ShowsWhetherALinkIsUp)
{
    ctl("link 3 down");
    EXPECT_THAT(ctl("link show"), HasSubstr("3 switch 20 down\n"));
    ctl("link 3 up");
    EXPECT_THAT(ctl("link show"), HasSubstr("3 switch 20 up\n"));
}

// "    vboard ctl fpga set 0x100 1      a register", and "`vboard ctl trace off`".
TEST(Documents, ShowCommandsThatWork)
{
    std::vector<std::string> texts{std::regex_replace(vboard_says("--man"), std::regex("\\\\"), "")};
    for (const char *page : {"virtual-board.md", "guides/board-bring-up.md", "guides/first-application.md"})
        texts.push_back(content_of(std::filesystem::path(DOCUMENTS) / page));
    const std::regex example("(?:^|\n) *vboard ctl (?:--board \\S+ )?(\\S+(?: \\S+)*)|`vboard ctl ([^`]*)`");
    unsigned tried = 0;
    for (const std::string &text : texts)
        for (std::sregex_iterator at(text.begin(), text.end(), example), end; at != end; ++at) {
            const std::string line = (*at)[1].str() + (*at)[2].str();
            if (line.find("MODEL") != std::string::npos)
                continue;
            EXPECT_EQ(refusal(line), "done") << line;
            ++tried;
        }
    EXPECT_GT(tried, 15u);
}
