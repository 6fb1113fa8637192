// ddalctl on a machine that is not a board: help, manual and completion work, every other command names the missing
// part.
#include <gtest/gtest.h>

#include "tools/ddalctl.h"

using namespace testing_board;

namespace {

// Returns the words of the first column under a heading of a help text.
std::vector<std::string> names_under(const std::string &help, const std::string &heading)
{
    std::vector<std::string> names;
    std::istringstream in(help.substr(help.find(heading)));
    std::string line;
    std::getline(in, line);
    while (std::getline(in, line) && line.starts_with("  "))
        names.push_back(line.substr(2, line.find(' ', 2) - 2));
    return names;
}

std::string completions(const std::string &script, const std::string &typed)
{
    const std::string commands = script + "COMP_WORDS=(" + typed + "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); " +
                                 "_ddalctl; echo \"${COMPREPLY[*]}\"";
    return run_program({"/bin/bash", "-c", commands}).out;
}

} // namespace

TEST(DdalctlWithoutBoard, ReportsThatInOneSentence)
{
    const Finished run = ddalctl("fpga read 0");
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find("this machine is not a board"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("vboard run"), std::string::npos) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 3) << run.err;

    const Finished as_json = ddalctl("fpga read 0 --json");
    EXPECT_EQ(as_json.status, 3);
    EXPECT_EQ(document_of(as_json).at("error").at("name"), "ENODEV");
}

TEST(DdalctlWithoutBoard, HelpsWithEveryCommand)
{
    const Finished top = ddalctl("--help");
    ASSERT_EQ(top.status, 0);
    const std::string manual = ddalctl("--man").out;
    size_t verbs = 0;
    for (const std::string &family : names_under(top.out, "Subcommands:")) {
        const Finished help = ddalctl(family + " --help");
        EXPECT_EQ(help.status, 0) << family;
        if (help.out.find("Subcommands:") == std::string::npos)
            continue;
        for (const std::string &verb : names_under(help.out, "Subcommands:")) {
            verbs++;
            EXPECT_EQ(ddalctl(family + " " + verb + " --help").status, 0) << family << " " << verb;
            std::string heading = ".B " + family + " " + verb;
            for (size_t at = 0; (at = heading.find('-', at)) != std::string::npos; at += 2)
                heading.insert(at, "\\");
            EXPECT_NE(manual.find(heading), std::string::npos) << family << " " << verb;
        }
    }
    EXPECT_GT(verbs, 30u);
    EXPECT_TRUE(ddalctl_json("fpga --help").at("help").is_string());
    EXPECT_EQ("ddalctl " + ddalctl_json("--version").at("version").get<std::string>() + "\n", ddalctl("--version").out);
}

TEST(DdalctlWithoutBoard, CompletesTypedWords)
{
    const std::string script = ddalctl("--completion bash").out;
    EXPECT_EQ(completions(script, "ddalctl fp"), "fpga\n");
    EXPECT_EQ(completions(script, "ddalctl --json fpga re"), "read\n");
    EXPECT_EQ(completions(script, "ddalctl frame watch --c"), "--count\n");
}
