// ddalctl on accounts and remote access: refusals, and secrets that pass only through standard input.
#include <cstdlib>

#include <gtest/gtest.h>

#include "support/board.h"
#include "support/board_file.h"
#include "tools/ddalctl.h"

using namespace testing_board;

namespace {

// Runs a shell line on the board. The secret goes through a pipe.
int shell(const std::string &line)
{
    const int status = std::system(line.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

TEST(DdalctlAccounts, RestrictingWithoutKeysChangesNothingAndNamesTheReason)
{
    const std::string before = file_content("/etc/ssh/sshd_config");
    const Finished run = ddalctl("root-access restrict");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("no authorized key"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("nothing was changed"), std::string::npos) << run.err;
    EXPECT_EQ(file_content("/etc/ssh/sshd_config"), before);
    EXPECT_EQ(ddalctl_json("root-access status").at("root-access"), "unrestricted");
}

TEST(DdalctlAccounts, PasswordsComeOnlyByStandardInput)
{
    const std::string program = DDALCTL_PROGRAM;
    EXPECT_EQ(ddalctl("password set serviceuser Secret-0815").status, 2);
    EXPECT_EQ(shell("printf 'Quite-long-0815\\n' | " + program + " password set serviceuser"), 0);
    const std::string shadow = file_content("/etc/shadow");
    EXPECT_EQ(shadow.find("serviceuser:factory:"), std::string::npos);
    EXPECT_EQ(shadow.find("Quite-long-0815"), std::string::npos);
    EXPECT_EQ(shell("printf '' | " + program + " password set serviceuser 2>/dev/null"), 2);
    EXPECT_EQ(shell("printf 'one\\ntwo\\n' | " + program + " password set serviceuser 2>/dev/null"), 2);
    EXPECT_EQ(shell("printf 'Quite-long-0815\\n' | " + program + " password set nobody 2>/dev/null"), 2);
}

TEST(DdalctlAccounts, OptionsReachTheConfiguration)
{
    const std::string program = DDALCTL_PROGRAM;
    EXPECT_EQ(ddalctl("ssh set ClientAliveInterval 77 --persist").status, 0);
    EXPECT_NE(file_content("/etc/ssh/sshd_config").find("ClientAliveInterval 77\n"), std::string::npos);
    EXPECT_EQ(file_content("/ffs/run/etc/ssh/p_sshd_config"), "ClientAliveInterval 77\n");
    EXPECT_EQ(ddalctl("password history 5").status, 0);
    EXPECT_NE(file_content("/etc/pam.d/common-password").find("remember=5"), std::string::npos);
    EXPECT_EQ(ddalctl("password login-delay 2000007").status, 0);
    EXPECT_EQ(file_content("/rom/etc/ssh/ssh_fail_login_delay"), "7\n");
    EXPECT_EQ(ddalctl("ssh banner Welcome").status, 0);
    EXPECT_EQ(file_content("/etc/ssh/sshd-banner"), "Welcome\n");
    EXPECT_EQ(shell("printf 'two\nlines' | " + program + " ssh banner"), 0);
    EXPECT_EQ(file_content("/etc/ssh/sshd-banner"), "two\nlines");
    EXPECT_EQ(ddalctl("ssh restart").status, 0);
}

TEST(DdalctlAccounts, FactoryStateNeedsAConfirmation)
{
    constexpr const char *kKeys = "/user/serviceuser/.ssh/authorized_keys";
    const KeptFile accounts("/etc/shadow");
    put_file("/etc/shadow", "serviceuser:changed:20000:0:99999:7:::\n");
    put_file(kKeys, "ssh-ed25519 old\n");
    for (const char *line : {"password reset serviceuser", "ssh keys reset serviceuser"}) {
        const Finished asked = ddalctl(line);
        EXPECT_EQ(asked.status, 2) << line;
        EXPECT_NE(asked.err.find("--yes"), std::string::npos) << asked.err;
    }
    EXPECT_EQ(file_content("/etc/shadow"), "serviceuser:changed:20000:0:99999:7:::\n");
    EXPECT_EQ(file_content(kKeys), "ssh-ed25519 old\n");

    EXPECT_EQ(ddalctl("password reset serviceuser --yes").status, 0);
    EXPECT_EQ(ddalctl("ssh keys reset serviceuser --yes").status, 0);
    EXPECT_EQ(file_content("/etc/shadow"), "serviceuser:factory:20000:0:99999:7:::\n");
    EXPECT_EQ(file_content(kKeys), file_content("/etc/default/serviceuser/ssh/authorized_keys"));
}

TEST(DdalctlAccounts, RestrictsWithAKeyAndLifts)
{
    const std::string key = "/user/toor4qrx/.ssh/id_ed25519";
    ASSERT_EQ(run_program({"/usr/bin/ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", key}).status, 0);
    put_file("/user/toor4qrx/.ssh/authorized_keys", file_content(key + ".pub"));
    EXPECT_EQ(ddalctl_json("root-access restrict"), Json::object());
    EXPECT_EQ(ddalctl_json("root-access status").at("root-access"), "restricted");
    EXPECT_NE(file_content("/etc/ssh/sshd_config").find("toor4qrx@127.0.0.1"), std::string::npos);
    EXPECT_EQ(ddalctl("root-access lift").status, 0);
    EXPECT_EQ(ddalctl("root-access status").out, "unrestricted\n");
}
