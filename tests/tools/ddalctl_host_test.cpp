// ddalctl on a machine that is not a board: help, manual pages and completion work, also those of vboard. Every other
// command names the missing part.
#include <cstdlib>
#include <filesystem>
#include <fstream>

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
        if (line.size() > 2 && line[2] != ' ')
            names.push_back(line.substr(2, line.find(' ', 2) - 2));
    return names;
}

// A folder with the programs as a shell finds them, under the emulator of this test, and their documents.
class Programs {
public:
    Programs()
    {
        const char *emulator = getenv("VBOARD_EMULATOR");
        write("ddalctl", std::string(emulator ? emulator : "") + " " DDALCTL_PROGRAM);
        write("vboard", VBOARD_PROGRAM);
    }
    ~Programs() { std::filesystem::remove_all(folder_); }

    Finished run(const std::string &script, std::vector<std::string> words) const
    {
        words.insert(words.begin(), {"/usr/bin/env", "PATH=" + folder_ + ":/usr/bin:/bin", "TERM=dumb"});
        words.insert(words.begin() + 6, script);
        return run_program(words);
    }
    const std::string &folder() const { return folder_; }

private:
    void write(const std::string &name, const std::string &command) const
    {
        std::ofstream(folder_ + "/" + name) << "#!/bin/sh\nexec " << command << " \"$@\"\n";
        std::filesystem::permissions(folder_ + "/" + name, std::filesystem::perms::owner_all);
    }

    char template_[24] = "/tmp/programs-XXXXXX";
    std::string folder_ = mkdtemp(template_);
};

// Each prints the last word of every typed line, completed.
constexpr const char *kBash = R"(
_command_offset() { COMP_WORDS=("${COMP_WORDS[@]:$1}"); COMP_CWORD=$((COMP_CWORD - $1)); "_${COMP_WORDS[0]}"; }
for program in ddalctl vboard; do . <($program --completion bash); done
for typed; do COMP_WORDS=($typed); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); "_${COMP_WORDS[0]}"; echo "${COMPREPLY[*]}"; done)";
constexpr const char *kFish = R"(
for program in ddalctl vboard; $program --completion fish | source; end
for typed in $argv; complete -C $typed | string replace -r '\t.*' ''; end)";
constexpr const char *kZsh = R"(
zmodload zsh/zpty
zpty shell zsh -f -i
zpty -w shell 'PROMPT=; autoload -U compinit; compinit -u -D; for program in ddalctl vboard; do
source <($program --completion zsh); done; show() { print -r -- "<<${${BUFFER% }##* }>>" }; zle -N show
bindkey "^X^X" show; print ready$((1+1))'
zpty -r shell seen '*ready2*'
for typed; do
    zpty -w -n shell "$typed"$'\t\x18\x18\x15'
    zpty -r shell seen '*>>*'
    print -r -- ${${seen##*<<}%%>>*}
done
zpty -d shell)";

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
    size_t verbs = 0;
    for (const std::string &family : names_under(top.out, "Subcommands:")) {
        const Finished help = ddalctl(family + " --help");
        EXPECT_EQ(help.status, 0) << family;
        const Finished topic = ddalctl("help " + family);
        if (help.out.find("Subcommands:") == std::string::npos)
            continue;
        for (const std::string &verb : names_under(help.out, "Subcommands:")) {
            verbs++;
            EXPECT_EQ(ddalctl(family + " " + verb + " --help").status, 0) << family << " " << verb;
            EXPECT_NE(topic.out.find("\nddalctl " + family + " " + verb), std::string::npos) << family << " " << verb;
        }
    }
    EXPECT_GT(verbs, 30u);
    EXPECT_TRUE(ddalctl_json("fpga --help").at("help").is_string());
    EXPECT_EQ("ddalctl " + ddalctl_json("--version").at("version").get<std::string>() + "\n", ddalctl("--version").out);
}

TEST(DdalctlWithoutBoard, ExplainsTopicsAndSuggestsWords)
{
    for (const std::string &topic : names_under(ddalctl("help").out, "help:"))
        EXPECT_EQ(ddalctl("help " + topic).out.rfind(topic + ": ", 0), 0u) << topic;
    constexpr std::pair<const char *, const char *> kWrong[] = {
        {"help exit-statsu", "did you mean \"exit-status\"?"},
        {"help sfp shoow", "did you mean \"show\"?"},
        {"spf show 1", "did you mean \"sfp\"?"},
        {"sfp shoow 1", "did you mean \"show\"?"},
    };
    for (const auto &[line, hint] : kWrong) {
        const Finished run = ddalctl(line);
        EXPECT_EQ(run.status, 2) << line;
        EXPECT_NE(run.err.find(hint), std::string::npos) << run.err;
    }
}

// The table holds for all shells. ":" stands for a path below the folder of the programs.
TEST(Completion, OffersWordsAndValuesInEveryShell)
{
    const Programs programs;
    constexpr std::pair<const char *, const char *> kTyped[] = {
        {"ddalctl sf", "sfp"},
        {"ddalctl --json fpga re", "read"},
        {"ddalctl frame watch --c", "--count"},
        {"ddalctl sfp set 1 rate-select h", "high"},
        {"ddalctl phy set 0 crossover s", "straight"},
        {"ddalctl rf-fpga read 0 --device 3", "3"},
        {"ddalctl events --only laa,presc", "laa,prescan"},
        {"ddalctl help exit", "exit-status"},
        {"ddalctl rfcard upgrade :/ddal", ":/ddalctl"},
        {"vboard cre", "create"},
        {"vboard run --type type8", "type8"},
        {"vboard ctl --board some/where jit", "jitter-cleaner"},
        {"vboard ctl frame sto", "stop"},
        {"vboard ctl sfp set 2 temp", "temperature"},
        {"vboard ctl sfp plug 1 dump :/vb", ":/vboard"},
        {"vboard ctl fault add preadv:/dev/fpga_usr nt", "nth="},
        {"vboard run --type mbo -- ddalctl sf", "sfp"},
    };
    std::vector<std::vector<std::string>> shells = {{"/bin/bash", "--norc", "-c", "bash"},
                                                    {"/usr/bin/fish", "--no-config", "-c"},
                                                    {"/usr/bin/zsh", "-f", "-c", "zsh"}};
    const char *const scripts[] = {kBash, kFish, kZsh};
    const auto placed = [&](const char *text) {
        return std::regex_replace(text, std::regex(":/"), programs.folder() + "/");
    };
    std::string expected;
    for (const auto &[typed, completed] : kTyped) {
        expected += placed(completed) + "\n";
        for (auto &shell : shells)
            shell.push_back(placed(typed));
    }
    for (size_t i = 0; i < std::size(scripts); i++) {
        const Finished run = programs.run(scripts[i], shells[i]);
        EXPECT_EQ(run.out, expected) << shells[i][0] << ": " << run.err;
    }
}

TEST(ManualPages, AreWrittenForEachFamilyAndWithoutWarnings)
{
    const Programs programs;
    ASSERT_EQ(ddalctl("--documents " + programs.folder()).status, 0);
    ASSERT_EQ(run_program({VBOARD_PROGRAM, "--documents", programs.folder()}).status, 0);
    size_t pages = 0;
    for (const auto &entry : std::filesystem::directory_iterator(programs.folder())) {
        if (entry.path().extension() != ".1")
            continue;
        pages++;
        const Finished page = run_program({"/usr/bin/groff", "-ww", "-z", "-man", entry.path()});
        EXPECT_EQ(page.err, "") << entry.path();
    }
    EXPECT_EQ(pages,
              names_under(ddalctl("--help").out, "Subcommands:").size() + 1); // "help" has none, the programs have
}
