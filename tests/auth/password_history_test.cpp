// Number of passwords that PAM remembers: the edit of its file, the persistent number, the boot hook.
#include <ddal/atboot.h>
#include <ddal/auth.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "auth/pam_file.h"
#include "auth/service_accounts.h"
#include "support/board.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr const char *kStored = "/rom/etc/security/pwhistory_remember";
constexpr const char *kHistory = "/rom/etc/security/opasswd";

class PasswordHistory : public testing::Test {
protected:
    void SetUp() override
    {
        put_file(kPamFile, before_);
        put_file(kStored, "5\n");
        put_file(kHistory, "serviceuser:1000:1:hash\n");
    }

    // Tests below show how the real module reads these two.
    const std::string before_ = distribution_pam_file();
    const std::string after_ = with(before_, "remember=5", "remember=12");
};

TEST_F(PasswordHistory, ChangesOnlyTheDigits)
{
    std::string hay;
    for (int i = 0; i < 10000; ++i)
        hay += "# password required pam_pwhistory.so remember=1\n";
    const std::string line = "password required pam_pwhistory.so ";
    const struct {
        std::string before, after; // equal if the file has no line to change
    } cases[] = {
        {before_, after_},
        {hay + before_, hay + after_},
        {line + "remember=5", line + "remember=12"},
        {line + "remember=5\r\n", line + "remember=12\r\n"},
        {line + "use_authtok remember=0007x retry=3\n", line + "use_authtok remember=12x retry=3\n"},
        {line + "remember=1 remember=2\n", line + "remember=1 remember=12\n"},
        {line + "remember=1\n" + line + "remember=2\n", line + "remember=12\n" + line + "remember=2\n"},
        {"password\t[success=1 default=ignore]\tpam_pwhistory.so\tremember=5\n",
         "password\t[success=1 default=ignore]\tpam_pwhistory.so\tremember=12\n"},
        {line + "use_authtok\n", line + "use_authtok\n"},
        {line + "remember=\n", line + "remember=\n"},
        {"#" + line + "remember=5\n", "#" + line + "remember=5\n"},
        {" " + line + "remember=5\n", " " + line + "remember=5\n"},
        {"Password required pam_pwhistory.so remember=5\n", "Password required pam_pwhistory.so remember=5\n"},
        {"password required pam_pwhistoryxso remember=5\n", "password required pam_pwhistoryxso remember=5\n"},
        {"password pam_pwhistory.so remember=5\n", "password pam_pwhistory.so remember=5\n"},
        {"", ""},
    };
    for (const auto &c : cases) {
        put_file(kPamFile, c.before);
        put_file(kStored, "5\n");
        const bool changes = c.before != c.after;
        LogWatch log;
        EXPECT_EQ(ddal_auth_set_password_history_len(12), changes ? 0 : -ENODATA) << c.before.substr(0, 200);
        EXPECT_EQ(file_content(kPamFile), c.after);
        EXPECT_EQ(file_content(kStored), changes ? "12\n" : "5\n");
        EXPECT_TRUE(log.take().empty());
    }
}

TEST_F(PasswordHistory, IsForgottenOnlyWithALengthOfZero)
{
    EXPECT_EQ(ddal_auth_set_password_history_len(4294967295u), 0);
    EXPECT_EQ(file_content(kStored), "4294967295\n");
    EXPECT_THAT(file_content(kPamFile), HasSubstr("remember=4294967295 use_authtok\n"));
    EXPECT_NE(file_content(kHistory), "");
    EXPECT_EQ(ddal_auth_set_password_history_len(0), 0);
    EXPECT_EQ(file_content(kStored), "0\n");
    EXPECT_THAT(file_content(kPamFile), HasSubstr("remember=0 use_authtok\n"));
    EXPECT_EQ(file_content(kHistory), "");
}

TEST_F(PasswordHistory, MakesItsFolder)
{
    std::filesystem::remove_all("/rom/etc/security");
    EXPECT_EQ(ddal_auth_set_password_history_len(0), 0) << "a missing history is not a failure";
    EXPECT_EQ(file_content(kStored), "0\n");
}

TEST_F(PasswordHistory, BootHookSetsPamToTheStoredLength)
{
    const std::string returned = "3 ddal_atboot_run: 'Restore PAM pwhistory settings' returned ";
    const struct {
        const char *stored; // null: no file
        int result;
        bool applied;
    } cases[] = {
        {"12\n", 0, true},
        {"12 and more", 0, true},
        {"0\n", 0, false},
        {nullptr, 0, false},
        {"", 0, false}, // the first change was cut short
        {"many\n", -EIO, false},
        {"-1\n", -EIO, false},
        {"4294967296\n", -ERANGE, false},
        {"99999999999999999999999999999999999999\n", -ERANGE, false},
    };
    for (const auto &c : cases) {
        put_file(kPamFile, before_);
        std::filesystem::remove(kStored);
        if (c.stored)
            put_file(kStored, c.stored);
        const std::string name = c.stored ? c.stored : "no file";
        LogWatch log;
        ddal_atboot_run();
        EXPECT_EQ(file_content(kPamFile), c.applied ? after_ : before_) << name;
        EXPECT_EQ(exists(kStored), c.stored != nullptr);
        if (c.stored) {
            EXPECT_EQ(file_content(kStored), c.stored);
        }
        const std::vector<std::string> lines = log.take();
        if (c.result == 0) {
            EXPECT_THAT(lines, Not(Contains(HasSubstr(returned)))) << name;
        } else {
            EXPECT_THAT(lines, Contains(returned + std::to_string(c.result))) << name;
        }
    }
    put_file(kStored, "12\n");
    put_file(kPamFile, "password required pam_unix.so\n");
    LogWatch log;
    ddal_atboot_run();
    EXPECT_THAT(log.take(), Contains(returned + std::to_string(-ENODATA)));
}

// The real PAM library and history module read the edited file of the distribution. The test leaves out only the module
// that stores passwords in the machine's database.
TEST_F(PasswordHistory, IsReadByTheRealModule)
{
    const KeptFile accounts("/etc/passwd");
    put_file("/etc/passwd", "serviceuser:$6$salt$present:1000:1000::/:/bin/sh\n");
    std::filesystem::create_directories("/etc/security");
    for (const int length : {3, 6}) {
        put_file(kPamFile, distribution_pam_file());
        ASSERT_EQ(ddal_auth_set_password_history_len(static_cast<uint32_t>(length)), 0);
        std::string service = with(file_content(kPamFile), "use_authtok\n", "\n");
        service = with(service, "pam_unix.so obscure use_authtok try_first_pass yescrypt", "pam_permit.so");
        put_file("/etc/pam.d/history-test", service);
        put_file("/etc/security/opasswd", "serviceuser:1000:5:$6$a$1,$6$a$2,$6$a$3,$6$a$4,$6$a$5\n");
        const Finished run = run_program({"/bin/sh", "-c",
                                          "printf 'New-pass-1\\nNew-pass-1\\n' | "
                                          "/usr/bin/pamtester history-test serviceuser chauthtok"});
        EXPECT_EQ(run.status, 0) << run.out << run.err;
        EXPECT_THAT(file_content("/etc/security/opasswd"),
                    testing::StartsWith("serviceuser:1000:" + std::to_string(length) + ":"));
    }
}

TEST_F(PasswordHistory, SettingItSurvivesEveryFailure)
{
    Sweep sweep("ddal_auth_set_password_history_len", [] { return ddal_auth_set_password_history_len(12); });
    sweep
        .before([this] {
            SetUp();
            give_own_attributes(kPamFile);
            give_own_attributes(kStored);
        })
        .watch({"/etc/pam.d", "/rom/etc/security"})
        .after([this](const Outcome &seen) {
            const std::string pam = file_content(kPamFile);
            const std::string stored = file_content(kStored);
            EXPECT_TRUE(pam == before_ || pam == after_) << pam;
            EXPECT_TRUE(stored == "5\n" || (stored == "12\n" && pam == after_)) << stored;
            EXPECT_EQ(stored, seen.result == 0 ? "12\n" : "5\n");
            EXPECT_EQ(attributes(kPamFile), kOwnAttributes);
            EXPECT_EQ(attributes(kStored), kOwnAttributes);
            EXPECT_TRUE(is_unlocked(kPamFile) && is_unlocked(kStored));
        })
        .when("stat:/rom/etc/security", changes_nothing()); // the following open reports the failure
    expect_quiet_failures(sweep, before_);
    sweep.run();
}

} // namespace
