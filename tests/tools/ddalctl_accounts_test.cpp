// ddalctl on accounts and remote access: what is refused, and that a secret comes in by standard input alone.
#include <cstdlib>

#include <gtest/gtest.h>

#include "support/board.h"
#include "support/board_file.h"
#include "tools/ddalctl.h"

using namespace testing_board;

namespace {

// A shell line of the board: the secret goes through a pipe.
int shell(const std::string &line)
{
    const int status = std::system(line.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

TEST(DdalctlAccounts, RestrictingWithoutKeysChangesNothingAndSaysWhy)
{
    const std::string before = file_content("/etc/ssh/sshd_config");
    const Finished run = ddalctl("root-access restrict");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("no authorized key"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("nothing was changed"), std::string::npos) << run.err;
    EXPECT_EQ(file_content("/etc/ssh/sshd_config"), before);
    EXPECT_EQ(ddalctl_json("root-access status").at("root-access"), "unrestricted");
}

TEST(DdalctlAccounts, PasswordsComeByStandardInputOnly)
{
    const std::string program = DDALCTL_PROGRAM;
    EXPECT_EQ(ddalctl("password set serviceuser Secret-0815").status, 2);
    EXPECT_EQ(shell("printf 'Quite-long-0815\\n' | " + program + " password set serviceuser"), 0);
    const std::string shadow = file_content("/etc/shadow");
    EXPECT_EQ(shadow.find("serviceuser:factory:"), std::string::npos);
    EXPECT_EQ(shadow.find("Quite-long-0815"), std::string::npos);
    EXPECT_EQ(shell("printf '' | " + program + " password set serviceuser 2>/dev/null"), 2);
    EXPECT_EQ(shell("printf 'one\\ntwo\\n' | " + program + " password set serviceuser 2>/dev/null"), 2);
    EXPECT_EQ(shell("printf 'Quite-long-0815\\n' | " + program + " password set nobody 2>/dev/null"), 1);
}

TEST(DdalctlAccounts, OptionsReachTheConfiguration)
{
    EXPECT_EQ(ddalctl("ssh set LoginGraceTime 33").status, 1); // not one of the options that may be set
    EXPECT_EQ(ddalctl("password history 5").status, 0);
    EXPECT_NE(file_content("/etc/pam.d/common-password").find("remember=5"), std::string::npos);
    EXPECT_EQ(ddalctl("ssh banner Welcome").status, 0);
}
