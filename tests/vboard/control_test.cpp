// Commands to a board and the programs that it may start: refusals with their reasons, and the same commands in help,
// completion and documents.
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/unique_fd.h"
#include "rf_card/rf_card_driver.h"
#include "support/board.h"
#include "support/program.h"

using namespace testing_board;
using testing::HasSubstr;
using testing::Not;

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

std::string manual()
{
    char folder[] = "/tmp/documents-XXXXXX";
    vboard_says(std::string("--documents ") + mkdtemp(folder));
    const std::string page = content_of(std::string(folder) + "/vboard.1");
    std::filesystem::remove_all(folder);
    return page;
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
        {"frame stoq", "did you mean \"stop\"?"},
        {"link shaw", "did you mean \"show\"?"},
        {"link 99 up", "no link \"99\""},
        {"phy nowhere log", "no PHY \"nowhere\""},
        {"sfp plug 1 dmup x", "did you mean \"dump\"?"},
        {"sfp pull 3", "\"3\" is not 1 or 2"},
        {"sfp set 1 bias much", "\"much\" is not a decimal number"},
        {"sfp poke 1 id 0 abc", "is not pairs of hexadecimal digits"},
        {"switch send 14", "missing a word (FRAME)"},
        {"switch release 7", "releases of the SDK are"},
        {"fault add pred:/dev/fpga_usr errno=EIO", "no call \"pred\"; did you mean \"pread\"?"},
        {"fault add pread:/dev/fpga_usr errno=EOI", "did you mean \"EIO\"?"},
        {"fault add pread:/dev/fpga_usr count=-1", "\"-1\" is not a number"},
        {"fault add pread:/dev/fpga_usr nth=0", "0 is not from 1"},
        {"fault add pread:/dev/fpga_usr delay=-5ms", "is not a time"},
        {"rf-card fault late sometimes 1", "\"sometimes\" is not ack or response"},
    };
    for (const auto &[line, text] : kWrong)
        EXPECT_THAT(refusal(line), HasSubstr(text)) << line;
}

TEST(Control, IsHelpedCompletedAndDocumentedFromOneTable)
{
    EXPECT_THAT(vboard_says("ctl sfp --help"), HasSubstr("plug 1|2 dump FOLDER"));
    EXPECT_THAT(manual(), HasSubstr(".B sfp plug 1|2 dump FOLDER\n"));
    EXPECT_EQ(vboard_says("--complete ctl frame st"), "start\nstop\n");
    EXPECT_EQ(vboard_says("--complete ctl fpga get 0x10 x"), "");
    for (const char *reference : {"--control-reference", "--fence-reference"})
        EXPECT_NE(content_of(DOCUMENTS "/virtual-board.md").find(vboard_says(reference)), std::string::npos)
            << "a table differs from that of vboard " << reference;
}

TEST(Control, ShowsWhetherALinkIsUp)
{
    ctl("link 3 down");
    EXPECT_THAT(ctl("link show"), HasSubstr("3 switch 20 down\n"));
    ctl("link 3 up");
    EXPECT_THAT(ctl("link show"), HasSubstr("3 switch 20 up\n"));
}

TEST(Control, WarnsOfAFaultThatNothingServes)
{
    EXPECT_THAT(ctl("fault add open:/dev/fpga_user"), HasSubstr("warning: no model or file of this board serves "
                                                                "/dev/fpga_user; did you mean \"/dev/fpga_usr\"?"));
    for (const char *served : {"open:/dev/fpga_usr", "read:/etc/version", "open:/dev/*", "close", "write:/tmp/new"})
        EXPECT_THAT(ctl(std::string("fault add ") + served), Not(HasSubstr("warning"))) << served;
    ctl("fault clear");
}

TEST(SerialLine, IsTracedAndFailsLikeEveryNode)
{
    const std::string path = ddal::rf_card::kUartNode;
    {
        const Fault unopened("open:" + path + " errno=EMFILE");
        EXPECT_EQ(open(path.c_str(), O_RDWR | O_NOCTTY), -1);
        EXPECT_EQ(errno, EMFILE);
    }
    const ddal::core::UniqueFd line{open(path.c_str(), O_RDWR | O_NOCTTY)};
    {
        const Fault unwritten("write:" + path + " errno=ENOSPC");
        EXPECT_EQ(write(line.get(), "x", 1), -1);
        EXPECT_EQ(errno, ENOSPC);
    }
    EXPECT_EQ(write(line.get(), "\x5a", 1), 1);
    const std::string trace = content_of(board().directory() / ".vboard/trace.jsonl");
    EXPECT_THAT(trace, HasSubstr("\"call\":\"write\",\"path\":\"" + path + "\",\"data\":\"5a\",\"result\":1"));
}

// Also by the name of a link to them, and by the first line of a script.
TEST(Interpreters, StartFromAShellOfTheBoard)
{
    char folder[] = "/tmp/scripts-XXXXXX";
    const std::filesystem::path scripts = mkdtemp(folder);
    constexpr std::pair<const char *, const char *> kScripts[] = {
        {"python", "#!/usr/bin/python3\nprint('ran')\n"},
        {"found", "#!/usr/bin/env python3\nprint('ran')\n"},
        {"perl", "#!/usr/bin/perl\nprint \"ran\\n\";\n"},
        {"shell", "#!/bin/sh\necho ran\n"},
    };
    std::string lines = "python3 -c 'print(\"ran\")'; perl -e 'print \"ran\\n\"'";
    std::string ran = "ran\nran\n";
    for (const auto &[name, text] : kScripts) {
        std::ofstream(scripts / name) << text;
        std::filesystem::permissions(scripts / name, std::filesystem::perms::owner_all);
        lines += "; " + (scripts / name).string();
        ran += "ran\n";
    }
    const Finished run = run_program({"/bin/sh", "-c", lines});
    EXPECT_EQ(run.out, ran) << run.err;
    EXPECT_NE(run_program({"/bin/sh", "-c", "apt-get --version"}).status, 0) << "no interpreter";
    std::filesystem::remove_all(scripts);
}

// Finds commands such as "    vboard ctl fpga set 0x100 1      a register" and "`vboard ctl trace off`".
TEST(Documents, ShowCommandsThatWork)
{
    std::vector<std::string> texts{std::regex_replace(manual(), std::regex("\\\\"), "")};
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
