// Restricted root access: its effect on the daemon, the password and the flag file, and the state after a failed step.
#include <ddal/atboot.h>
#include <ddal/auth.h>

#include <cerrno>
#include <filesystem>
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "auth/root_access.h"
#include "support/board.h"
#include "support/log_watch.h"

using namespace testing_board;
using testing::Contains;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr const char *kSkip = "/proc/device-tree/security/skip_passwd_init";

std::string of_enabling(const std::string &text)
{
    return "3 restricted_root_access_enable: " + text;
}

std::string of_disabling(const std::string &text)
{
    return "3 restricted_root_access_disable: " + text;
}

const char *const kNotValidated = "3 ddal_sshd_update_config: Unable to validate new sshd config: 127";

TEST_F(RootAccess, RestrictsAndLifts)
{
    LogWatch log;
    uint32_t state = 7;
    EXPECT_EQ(ddal_auth_get_restricted_root_access_state(&state), 0);
    EXPECT_EQ(state, 1u);
    EXPECT_EQ(ddal_auth_set_restricted_root_access_state(0), 0);
    EXPECT_EQ(state_now(), restricted_);
    EXPECT_EQ(ddal_auth_get_restricted_root_access_state(&state), 0);
    EXPECT_EQ(state, 0u);
    struct stat flag = {};
    ASSERT_EQ(stat(kFlagFile, &flag), 0);
    EXPECT_EQ(flag.st_mode & 07777, 0600u);
    EXPECT_THAT(file_content("/run/stub/log"), HasSubstr("systemctl restart sshd.service\n"));

    const std::string config = restricted_.config;
    EXPECT_EQ(daemon_value(config, "allowusers", "toor4qrx"), "toor4qrx@127.0.0.1 toor4qrx@localhost serviceuser@*");
    for (const char *option : {"x11forwarding", "allowtcpforwarding"})
        EXPECT_EQ(daemon_value(config, option, "serviceuser"), "yes") << option;
    EXPECT_EQ(daemon_value(config, "disableforwarding", "serviceuser"), "no");
    EXPECT_EQ(daemon_value(config, "x11forwarding", "toor4qrx"), "no") << "the block is serviceuser's alone";

    EXPECT_EQ(ddal_auth_set_restricted_root_access_state(0), 0) << "a second call is not a failure";
    EXPECT_EQ(state_now(), restricted_);
    EXPECT_EQ(ddal_auth_set_restricted_root_access_state(1), 0);
    EXPECT_EQ(state_now(), unrestricted_);
    EXPECT_EQ(ddal_auth_set_restricted_root_access_state(1), 0);
    EXPECT_EQ(state_now(), unrestricted_);
    EXPECT_THAT(log.take(), ElementsAreArray({kRestarting, kRestarting, kRestarting, kRestarting}));
}

TEST_F(RootAccess, ChangesNothingWithoutAValidKey)
{
    const std::string check = "toor4qrx SSH configuration check error: ";
    const Lines refused = {of_enabling(check + "255"), of_setting("restricted root access enable error: -1001")};
    const KeptFile accounts("/etc/passwd");
    const struct {
        const char *what;
        std::function<void()> prepare;
        int result;
        Lines lines;
    } cases[] = {
        {"no file", [] { std::filesystem::remove(kPrivilegedKeys); }, -1001, refused},
        {"an empty file", [] { put_file(kPrivilegedKeys, ""); }, -1001, refused},
        {"comments only", [] { put_file(kPrivilegedKeys, "# none\n"); }, -1001, refused},
        {"no key", [] { put_file(kPrivilegedKeys, "ssh-ed25519 AAAAC3 nobody\n"); }, -1001, refused},
        {"another home", [] { put_file("/etc/passwd", "toor4qrx:x:0:0::/user/nobody:/bin/sh\n"); }, -1001, refused},
        {"no account",
         [] { put_file("/etc/passwd", "root:x:0:0::/root:/bin/sh\n"); },
         -ENOENT,
         {"3 ssh_configuration_is_valid: toor4qrx home directory get error: -2", of_enabling(check + "-2"),
          of_setting("restricted root access enable error: -2")}},
        {"an entry too long for the user database",
         [] { put_file("/etc/passwd", "toor4qrx:x:0:0::/" + std::string(2000, 'h') + ":/bin/sh\n"); },
         -1001,
         {"3 ssh_configuration_is_valid: toor4qrx home directory get error: 34", of_enabling(check + "34"),
          of_setting("restricted root access enable error: -1001")}},
    };
    for (const auto &c : cases) {
        SetUp();
        c.prepare();
        LogWatch log;
        EXPECT_EQ(ddal_auth_set_restricted_root_access_state(0), c.result) << c.what;
        EXPECT_EQ(state_now(), unrestricted_) << c.what;
        EXPECT_FALSE(exists("/run/stub/log")) << c.what << ": no program may run after the check";
        EXPECT_THAT(log.take(), ElementsAreArray(c.lines)) << c.what;
    }
}

TEST_F(RootAccess, ChecksItsArguments)
{
    LogWatch log;
    EXPECT_EQ(ddal_auth_set_restricted_root_access_state(2), -EINVAL);
    EXPECT_EQ(ddal_auth_set_restricted_root_access_state(0xffffffff), -EINVAL);
    EXPECT_EQ(ddal_auth_get_restricted_root_access_state(nullptr), -EINVAL);
    uint32_t state = 7;
    {
        const Fault fault(std::string("access:") + kFlagFile + " errno=EACCES");
        EXPECT_EQ(ddal_auth_get_restricted_root_access_state(&state), -EACCES);
    }
    EXPECT_EQ(state, 7u);
    EXPECT_EQ(state_now(), unrestricted_);
    EXPECT_THAT(log.take(),
                ElementsAreArray({of_setting("invalid restricted root access state value: 2"),
                                  of_setting("invalid restricted root access state value: -1"),
                                  std::string("3 ddal_auth_get_restricted_root_access_state: state is null"),
                                  std::string("3 ddal_auth_get_restricted_root_access_state: cannot access ") +
                                      kFlagFile + " file: Permission denied"}));
}

// A failure of a program or file: a fault rule, or an order to a stub (program, outcome).
struct Broken {
    const char *fault = nullptr;
    const char *stub = nullptr;
    const char *outcome = "1";
};

struct FailureCase {
    Broken first;
    Broken second;
    int result;
    State after;
    Lines lines;
};

class Breakage {
public:
    explicit Breakage(const Broken &broken) : broken_(broken)
    {
        if (broken.fault)
            fault_ = std::make_unique<Fault>(broken.fault);
        if (broken.stub)
            put_file(path(), std::string(broken.outcome) + "\n");
    }
    ~Breakage()
    {
        if (broken_.stub)
            std::filesystem::remove(path());
    }

private:
    std::string path() const { return std::string("/run/stub/fail/") + broken_.stub; }
    Broken broken_;
    std::unique_ptr<Fault> fault_;
};

TEST_F(RootAccess, RollsBackForEveryFailingProgram)
{
    const std::string failed = of_setting("restricted root access enable error: -1001");
    const std::string forwarding = of_enabling("enable SSH forwarding for serviceuser error: -1001");
    const State half_lifted = {restricted_.config, restricted_.password, false};
    const FailureCase cases[] = {
        {{.fault = "exec:/usr/sbin/sshd nth=3 errno=EACCES"},
         {},
         -1001,
         unrestricted_,
         {kNotValidated, forwarding, failed}},
        {{.fault = "exec:/usr/bin/ssh-keygen errno=EACCES"},
         {},
         -1001,
         unrestricted_,
         {of_enabling("toor4qrx SSH configuration check error: 127"), failed}},
        {{.stub = "passwd.-l"},
         {},
         -1001,
         unrestricted_,
         {of_enabling("lock toor4qrx password authentication error: 1"), failed}},
        {{.stub = "passwd.-l", .outcome = "signal KILL"},
         {},
         -EINTR,
         unrestricted_,
         {"4 _ddal_common_shell_command: system ('/usr/bin/passwd') interrupted",
          of_enabling("lock toor4qrx password authentication error: -4"),
          of_setting("restricted root access enable error: -4")}},
        {{.fault = "close:/ffs/run/etc/p_restrict_root_access errno=EIO"},
         {},
         -EIO,
         unrestricted_,
         {of_enabling("restricted root access flag file create error: -5"),
          of_setting("restricted root access enable error: -5")}},
        // A rollback that fails ends early. The first error is the one returned.
        {{.fault = "open:/ffs/run/etc/p_restrict_root_access errno=ENOSPC"},
         {.stub = "passwd.-u"},
         -ENOSPC,
         half_lifted,
         {of_enabling("restricted root access flag file create error: -28"),
          of_disabling("unlock toor4qrx password authentication error: 1"),
          of_setting("restricted root access enable error: -28")}},
        // The rollback does not include the restart.
        {{.stub = "systemctl.restart"},
         {},
         -1001,
         restricted_,
         {kRestarting, "3 ddal_sshd_restart: Unable to restart sshd service: 1",
          of_setting("SSHD service restart error: -1001")}},
    };
    for (const FailureCase &c : cases) {
        put(unrestricted_);
        const Breakage first(c.first);
        const Breakage second(c.second);
        LogWatch log;
        EXPECT_EQ(ddal_auth_set_restricted_root_access_state(0), c.result) << c.lines[0];
        EXPECT_EQ(state_now(), c.after) << c.lines[0];
        EXPECT_THAT(log.take(), ElementsAreArray(c.lines));
    }
}

TEST_F(RootAccess, LiftingStopsAtItsFirstFailure)
{
    const std::string failed = of_setting("restricted root access disable error: -1001");
    const std::string forwarding = of_disabling("disable SSH forwarding for serviceuser error: -1001");
    const FailureCase cases[] = {
        {{.fault = "exec:/usr/sbin/sshd nth=3 errno=EACCES"},
         {},
         -1001,
         {lifted_[2], unrestricted_.password, false},
         {kNotValidated, forwarding, failed}},
        {{.fault = "unlink:/ffs/run/etc/p_restrict_root_access errno=EROFS"},
         {},
         -EROFS,
         restricted_,
         {of_disabling("restricted root access flag file remove error: -30"),
          of_setting("restricted root access disable error: -30")}},
        {{.stub = "passwd.-u", .outcome = "9"},
         {},
         -1001,
         {restricted_.config, restricted_.password, false},
         {of_disabling("unlock toor4qrx password authentication error: 9"), failed}},
        {{.stub = "systemctl.reset-failed"},
         {},
         -1001,
         unrestricted_,
         {kRestarting, "3 ddal_sshd_restart: Reset failed counter error: 1",
          of_setting("SSHD service restart error: -1001")}},
    };
    for (const FailureCase &c : cases) {
        put(restricted_);
        const Breakage breakage(c.first);
        LogWatch log;
        EXPECT_EQ(ddal_auth_set_restricted_root_access_state(1), c.result) << c.lines[0];
        EXPECT_EQ(state_now(), c.after) << c.lines[0];
        EXPECT_THAT(log.take(), ElementsAreArray(c.lines));
    }
}

// kept: a missing block begins at the first empty line. The distribution's file begins with an empty line, so the whole
// file would end up in the block. The daemon refuses that, and the earlier steps are rolled back.
TEST_F(RootAccess, KeepsAConfigurationWithoutAPlaceForTheBlock)
{
    const std::string debian = from_package("/usr/share/openssh/sshd_config");
    put_file(kLiveConfig, debian);
    EXPECT_EQ(ddal_auth_set_restricted_root_access_state(0), -1001);
    const State after = state_now();
    EXPECT_EQ(after.config, debian + "AllowUsers toor4qrx@* serviceuser@*\n");
    EXPECT_EQ(after.password, unrestricted_.password);
    EXPECT_FALSE(after.flag);
    // The edit works if the file has a block.
    const std::string with_block = "Match User serviceuser\n Banner none\n";
    put_file(kLiveConfig, "UsePAM yes\n" + with_block);
    EXPECT_EQ(ddal_auth_set_restricted_root_access_state(0), 0);
    EXPECT_TRUE(daemon_accepts(file_content(kLiveConfig)));
}

// --- boot hook
// --------------------------------------------------------------------------------------------------------

// Returns the lines of the boot hook among those of the whole start-up.
Lines lines_of_the_hook()
{
    LogWatch log;
    ddal_atboot_run();
    Lines lines = log.take();
    const std::string begin = "6 ddal_atboot_run: Running 'Init restricted root access'...";
    const auto first = std::find(lines.begin(), lines.end(), begin);
    const auto last = std::find_if(first + 1, lines.end(), [](const std::string &line) {
        return line.rfind("6 ddal_atboot_run: Running", 0) == 0;
    });
    return {first + 1, last};
}

TEST_F(RootAccess, BootHookAppliesTheFlag)
{
    const std::string no_skip =
        std::string("3 ddal_common_read_file: error open ") + kSkip + ": No such file or directory";
    const std::string disabled = "6 init_restricted_root_access: Resticted root access is disabled";
    const std::string enabled = "6 init_restricted_root_access: Resticted root access is enabled";
    const std::string returned = "3 ddal_atboot_run: 'Init restricted root access' returned ";
    const std::string reading = std::string("3 skip_passwd_init: reading ") + kSkip + ": error: ";
    const struct {
        bool flag;
        const char *skip; // null: the property is missing
        bool applies;
        Lines lines;
    } cases[] = {
        {false, nullptr, false, {no_skip, disabled}},
        {true, nullptr, true, {no_skip, enabled}},
        {true, "0", true, {enabled}},
        {true, "1", false, {disabled}},
        {true, "18446744073709551615", false, {disabled}},
        {false, "0", false, {disabled}},
        {true, "yes", false, {reading + "-61", returned + "-61"}},
        {true, "99999999999999999999999999999999999999", false, {reading + "-27", returned + "-27"}},
    };
    for (const auto &c : cases) {
        put({unrestricted_.config, unrestricted_.password, c.flag});
        std::filesystem::remove(kSkip);
        if (c.skip)
            put_file(kSkip, c.skip);
        const std::string name = c.skip ? c.skip : "no property";
        EXPECT_THAT(lines_of_the_hook(), ElementsAreArray(c.lines)) << name;
        EXPECT_EQ(state_now(), c.applies ? restricted_ : (State{unrestricted_.config, unrestricted_.password, c.flag}))
            << name;
        EXPECT_THAT(file_content("/run/stub/log"), Not(HasSubstr("systemctl"))) << "the daemon runs later";
    }
    std::filesystem::remove(kSkip);

    put({unrestricted_.config, unrestricted_.password, true});
    std::filesystem::remove(kPrivilegedKeys);
    EXPECT_THAT(
        lines_of_the_hook(),
        ElementsAreArray({no_skip, of_enabling("toor4qrx SSH configuration check error: 255"),
                          std::string("3 init_restricted_root_access: restricted root access enable error: -1001"),
                          returned + "-1001"}));
    EXPECT_TRUE(exists(kFlagFile)) << "the next start tries again";
}

TEST_F(RootAccess, BootHookMakesTheRunDirectory)
{
    const std::string returned = "3 ddal_atboot_run: 'Init restricted root access' returned ";
    std::filesystem::remove("/var/run/sshd");
    lines_of_the_hook();
    struct stat status = {};
    ASSERT_EQ(stat("/var/run/sshd", &status), 0);
    EXPECT_TRUE(S_ISDIR(status.st_mode));
    EXPECT_EQ(status.st_mode & 07777, 0755u);

    std::filesystem::remove("/var/run/sshd");
    {
        const Fault fault("mkdir:/run/sshd errno=EROFS");
        EXPECT_THAT(
            lines_of_the_hook(),
            ElementsAreArray({std::string("3 create_dir: Creating dir /var/run/sshd error: -30 "), returned + "-30"}));
    }
    put_file("/var/run/sshd", "");
    EXPECT_THAT(lines_of_the_hook(),
                ElementsAreArray(
                    {std::string("3 create_dir: Exists, but is not a directory: /var/run/sshd "), returned + "-1001"}));
    std::filesystem::remove("/var/run/sshd");
    std::filesystem::create_directory("/var/run/sshd");
}

} // namespace
