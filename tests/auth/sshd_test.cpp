// Options, banner and restart of the SSH daemon. The distribution's daemon judges every configuration.
#include <ddal/sshd.h>

#include <cerrno>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "auth/service_accounts.h"
#include "support/board.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;
using testing::ElementsAre;
using testing::HasSubstr;
using Lines = std::vector<std::string>;

namespace {

class Sshd : public testing::Test {
protected:
    static void SetUpTestSuite() { install_daemon(); }
    void SetUp() override
    {
        put_file(kLiveConfig, factory());
        std::filesystem::remove(kPersistentConfig);
    }
    // Returns the configuration at the start of the board.
    static const std::string &factory()
    {
        static const std::string text = file_content(kLiveConfig);
        return text;
    }
    // The distribution's configuration has no user block, so the board's block is appended.
    static std::string distribution()
    {
        return from_package("/usr/share/openssh/sshd_config") + "Match User serviceuser\n Banner none\n";
    }
};

TEST_F(Sshd, AcceptsAndRefusesValues)
{
    constexpr const char *kInterval = "ClientAliveInterval";
    constexpr const char *kCount = "ClientAliveCountMax";
    const struct {
        const char *name, *value;
        int result;
        const char *reason; // logged first by the check
    } cases[] = {
        {kInterval, "0", 0, ""},
        {kInterval, "65535", 0, ""},
        {kInterval, "+60", 0, ""},
        {kInterval, "000000000000000000000000000060", 0, ""},
        {kCount, "1", 0, ""},
        {kCount, "255", 0, ""},
        {kInterval, "65536", -EINVAL, "out of bounds"},
        {kInterval, "-1", -EINVAL, "out of bounds"},
        {kCount, "0", -EINVAL, "out of bounds"},
        {kCount, "256", -EINVAL, "out of bounds"},
        {kCount, "-0", -EINVAL, "out of bounds"},
        {kInterval, "", -EINVAL, "not long"},
        {kInterval, " 5", -EINVAL, "not long"},
        {kInterval, "5 ", -EINVAL, "not long"},
        {kInterval, "5m", -EINVAL, "not long"},
        {kInterval, "5\nPermitRootLogin yes", -EINVAL, "not long"},
        {kInterval, "100000000000000000000000000000", -EINVAL, "not long"},
        {kInterval, nullptr, -EINVAL, ""},
        {nullptr, "5", -1023, ""},
        {nullptr, nullptr, -1023, ""},
        {"Port", "22", -1023, ""},
        {"Port", nullptr, -EINVAL, ""},
        {"clientaliveinterval", "5", -1023, ""},
        {"ClientAliveInterval 5\nPort", "5", -1023, ""},
    };
    for (const auto &c : cases) {
        const std::string name = c.name ? c.name : "(null)";
        const std::string value = c.value ? c.value : "(null)";
        const std::string before = file_content(kLiveConfig);
        LogWatch log;
        EXPECT_EQ(ddal_sshd_set_parameter(c.name, c.value, 0), c.result) << name << "=" << value;
        const std::string after = file_content(kLiveConfig);
        if (c.result == 0) {
            EXPECT_THAT(after, HasSubstr("\n" + name + " " + value + "\n"));
            EXPECT_THAT(log.take(), ElementsAre());
            continue;
        }
        EXPECT_EQ(after, before) << name << "=" << value;
        std::string lines; // a value may hold a line break, so they are compared as one text
        for (const std::string &line : log.take())
            lines += line + "\n";
        std::string wanted = "3 ddal_sshd_set_parameter: Invalid value '" + value + "' for parameter '" + name + "'\n";
        if (*c.reason)
            wanted = "3 is_parameter_valid: Value '" + value + "' for '" + name + "' is " + c.reason + "\n" + wanted;
        if (value.find('\n') == std::string::npos && name.find('\n') == std::string::npos) {
            EXPECT_EQ(lines, wanted);
        }
    }
}

TEST_F(Sshd, EditsHandWrittenFiles)
{
    const std::string debian = distribution();
    const std::string set = "ClientAliveInterval 77\n";
    const struct {
        const char *what;
        std::string before, after;
    } cases[] = {
        {"the distribution's", debian, with(debian, "\nMatch User", "\n" + set + "Match User")},
        {"the board's", factory(), with(factory(), "ClientAliveInterval 300\n", set)},
    };
    for (const auto &c : cases) {
        put_file(kLiveConfig, c.before);
        EXPECT_EQ(ddal_sshd_set_parameter("ClientAliveInterval", "77", 0), 0) << c.what;
        EXPECT_EQ(file_content(kLiveConfig), c.after) << c.what;
        EXPECT_EQ(daemon_value(c.after, "clientaliveinterval", "x"), "77") << c.what;
    }
}

TEST_F(Sshd, KeepsAFileThatTheDaemonWouldRefuse)
{
    const std::string bad = "NoSuchOption yes\n" + factory();
    put_file(kLiveConfig, bad);
    LogWatch log;
    EXPECT_EQ(ddal_sshd_set_parameter("ClientAliveInterval", "5", DDAL_SSHD_PERSIST), -1001);
    EXPECT_EQ(file_content(kLiveConfig), bad);
    EXPECT_FALSE(exists(kPersistentConfig)) << "the live file comes first";
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_sshd_update_config: Unable to validate new sshd config: 255"));
}

TEST_F(Sshd, PersistsOnRequest)
{
    EXPECT_EQ(ddal_sshd_set_parameter("ClientAliveInterval", "5", 2), 0);
    EXPECT_FALSE(exists(kPersistentConfig));
    EXPECT_EQ(ddal_sshd_set_parameter("ClientAliveInterval", "5", DDAL_SSHD_PERSIST), 0);
    EXPECT_EQ(ddal_sshd_set_parameter("ClientAliveCountMax", "9", DDAL_SSHD_PERSIST), 0);
    EXPECT_EQ(ddal_sshd_set_parameter("ClientAliveInterval", "6", DDAL_SSHD_PERSIST), 0);
    EXPECT_EQ(file_content(kPersistentConfig), "ClientAliveInterval 6\nClientAliveCountMax 9\n");

    std::filesystem::rename("/ffs/run/etc/ssh", "/ffs/run/etc/ssh-away");
    EXPECT_EQ(ddal_sshd_set_parameter("ClientAliveInterval", "7", DDAL_SSHD_PERSIST), -1001);
    std::filesystem::rename("/ffs/run/etc/ssh-away", "/ffs/run/etc/ssh");
    EXPECT_THAT(file_content(kLiveConfig), HasSubstr("ClientAliveInterval 7\n"));
}

TEST_F(Sshd, WritesTheBannerUnchanged)
{
    const std::string text = "two\nlines, no last newline " + std::string(9000, 'x');
    EXPECT_EQ(ddal_sshd_set_banner(text.c_str()), 0);
    EXPECT_EQ(file_content("/etc/ssh/sshd-banner"), text);
    LogWatch log;
    EXPECT_EQ(ddal_sshd_set_banner(nullptr), -EINVAL);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_sshd_set_banner: banner_text cannot be null"));
    EXPECT_EQ(file_content("/etc/ssh/sshd-banner"), text);
}

TEST_F(Sshd, RestartsOnEveryRequest)
{
    for (int i = 0; i < 8; ++i) // the service manager refuses the sixth start unless the counter is cleared
        EXPECT_EQ(ddal_sshd_restart(), 0);
}

// --- failure sweeps
// ---------------------------------------------------------------------------------------------------

const char *kLiveOption = "ClientAliveInterval";

std::string update_line(const std::string &what)
{
    return "3 ddal_sshd_update_config: Unable to " + what;
}

// The daemon's test could not be started: the runner's line and the editor's.
Expectation daemon_not_started()
{
    return [](const Injected &injected, const Outcome &) {
        const std::string code = std::to_string(-injected.error);
        return Outcome{-1001,
                       {"3 _ddal_common_shell_command_write_fp: popen ('/usr/sbin/sshd') failed: " + code,
                        update_line("validate new sshd config: " + code)}};
    };
}

TEST_F(Sshd, SettingAParameterSurvivesEveryFailure)
{
    const std::string live_before = "Port 22\nClientAliveInterval 300\nUsePAM yes\n";
    const std::string live_after = "Port 22\nClientAliveInterval 42\nUsePAM yes\n";
    const std::string persistent_before = "ClientAliveCountMax 9\nClientAliveInterval 1\n# rest\n";
    const std::string persistent_after = "ClientAliveCountMax 9\nClientAliveInterval 42\n# rest\n";
    ASSERT_TRUE(daemon_accepts(live_before) && daemon_accepts(live_after));
    const Expectation write_failed = fails(-1001, {update_line("write new sshd config: -5")});
    const Expectation persistent_failed =
        fails(-1001, {"3 update_persistent_file: Unable to write persistent sshd config: -5"});
    const Expectation quiet = fails(-1001, {});
    Sweep("ddal_sshd_set_parameter", [] { return ddal_sshd_set_parameter(kLiveOption, "42", DDAL_SSHD_PERSIST); })
        .before([&] {
            put_file(kLiveConfig, live_before);
            put_file(kPersistentConfig, persistent_before);
            give_own_attributes(kLiveConfig);
            give_own_attributes(kPersistentConfig);
        })
        .watch({"/etc/ssh", "/ffs/run/etc/ssh"})
        .after([&](const Outcome &seen) {
            const std::string live = file_content(kLiveConfig);
            const std::string persistent = file_content(kPersistentConfig);
            EXPECT_TRUE(live == live_before || live == live_after) << live;
            EXPECT_TRUE(persistent == persistent_before || persistent == persistent_after) << persistent;
            EXPECT_TRUE(persistent == persistent_before || live == live_after) << "the live file comes first";
            if (seen.result == 0) {
                EXPECT_EQ(live, live_after);
                EXPECT_EQ(persistent, persistent_after);
            }
            EXPECT_TRUE(is_unlocked(kLiveConfig) && is_unlocked(kPersistentConfig));
            EXPECT_EQ(attributes(kLiveConfig), kOwnAttributes);
            EXPECT_EQ(attributes(kPersistentConfig), kOwnAttributes);
        })
        // Opening and locking. The last two prepare a child's descriptors.
        .when("open:/dev/null", fails(-1001, {update_line("validate new sshd config: 127")}))
        .when("open:/proc/*", fails(-1001, {update_line("validate new sshd config: 127")}))
        .when("open", quiet)
        .when("flock/ENOLCK", quiet)
        .when("stat", quiet)
        .when("fdopen:/etc/*", quiet)
        .when("fdopen:/ffs/*", quiet)
        // Reading the present content. A premature end counts as a failure.
        .when("getline:/etc/*", fails(-1001, {update_line("write new sshd config: -5")}))
        .when("getline:/ffs/*", persistent_failed)
        .when("fread/EIO:/etc/ssh/sshd_config", quiet)
        .when("fread/EIO:/ffs/run/etc/ssh/p_sshd_config", quiet)
        .when("fread/short:/etc/ssh/sshd_config", fails(-1001, {update_line("write new sshd config: -5")}))
        .when("fread/end:/etc/ssh/sshd_config", fails(-1001, {update_line("write new sshd config: -5")}))
        .when("fread/short:/ffs/run/etc/ssh/p_sshd_config", persistent_failed)
        .when("fread/end:/ffs/run/etc/ssh/p_sshd_config", persistent_failed)
        .when("ftell:/etc/*", fails(-1001, {update_line("write new sshd config: -5")}))
        .when("ftell:/ffs/*", persistent_failed)
        .when("fstat:/etc/ssh/sshd_config",
              in_turn({quiet, fails(-1001, {update_line("write new sshd config: -5")}), quiet}))
        .when("fstat:/ffs/run/etc/ssh/p_sshd_config", in_turn({quiet, persistent_failed, quiet}))
        // Writing the new content. The commit reports failures after the option.
        .when("fwrite:/etc/ssh/#*", in_turn({write_failed, write_failed, write_failed, write_failed, quiet}))
        .when("fwrite:/ffs/run/etc/ssh/#*",
              in_turn({persistent_failed, persistent_failed, persistent_failed, persistent_failed, quiet}))
        // The daemon's test.
        .when("fseek:/etc/ssh/#*", fails(-1001, {update_line("validate new sshd config: -22")}))
        .when("poll", changes_nothing())
        .when("pipe", daemon_not_started())
        .when("fork", daemon_not_started())
        .when("fdopen:pipe*", daemon_not_started())
        .when("fread/EIO:/etc/ssh/#*", fails(-1001, {update_line("validate new sshd config: -5")}))
        .when("fread/short:/etc/ssh/#*", fails(-1001, {update_line("validate new sshd config: 255")}))
        .when("fread/end:/etc/ssh/#*", changes_nothing())
        .when("fwrite/EIO:pipe*", fails(-1001, {update_line("validate new sshd config: -5")}))
        .when("fwrite/ENOSPC:pipe*", fails(-1001, {update_line("validate new sshd config: -28")}))
        // The commit.
        .when("fflush", quiet)
        .when("fsync:/etc/ssh", changes_nothing())
        .when("fsync:/ffs/run/etc/ssh", changes_nothing())
        .when("fsync", quiet)
        .when("fchmod", quiet)
        .when("fchown", quiet)
        .when("link", quiet)
        .when("rename", quiet)
        .when("fclose", changes_nothing())
        .run();
}

TEST_F(Sshd, WritingTheBannerSurvivesEveryFailure)
{
    const Expectation not_opened =
        fails(-1001, {"3 ddal_sshd_set_banner: couldn't open banner file=/etc/ssh/sshd-banner: %m"});
    const Expectation not_written = [](const Injected &injected, const Outcome &) {
        return Outcome{
            -1001,
            {"3 ddal_sshd_set_banner: Error writing to file=/etc/ssh/sshd-banner: " + std::to_string(-injected.error)}};
    };
    Sweep("ddal_sshd_set_banner", [] { return ddal_sshd_set_banner("new\n"); })
        .before([] {
            put_file("/etc/ssh/sshd-banner", "old\n");
            give_own_attributes("/etc/ssh/sshd-banner");
        })
        .watch({"/etc/ssh"})
        .after([](const Outcome &seen) {
            EXPECT_EQ(file_content("/etc/ssh/sshd-banner"), seen.result == 0 ? "new\n" : "old\n");
            EXPECT_EQ(attributes("/etc/ssh/sshd-banner"), kOwnAttributes);
            EXPECT_TRUE(is_unlocked("/etc/ssh/sshd-banner"));
        })
        .when("open", not_opened)
        .when("flock/ENOLCK", not_opened)
        .when("stat", not_opened)
        .when("fstat", in_turn({not_opened, not_written}))
        .when("fdopen", not_opened)
        .when("fwrite", fails(-1001, {"3 ddal_sshd_set_banner: Error writing to file=/etc/ssh/sshd-banner: -5"}))
        .when("fflush", not_written)
        .when("fsync:/etc/ssh", changes_nothing())
        .when("fsync", not_written)
        .when("fchmod", not_written)
        .when("fchown", not_written)
        .when("link", not_written)
        .when("rename", not_written)
        .when("fclose", changes_nothing())
        .run();
}

TEST_F(Sshd, RestartingSurvivesEveryFailure)
{
    const std::string calling = "6 ddal_sshd_restart: Calling ddal_sshd_restart";
    const auto after_failure = [&](const std::string &step, const Injected &injected) {
        if (injected.call != "fork")
            return Lines{calling, "3 ddal_sshd_restart: " + step + "127"};
        const std::string code = std::to_string(-injected.error);
        return Lines{calling, "3 _ddal_common_shell_command: system ('/bin/systemctl') failed: " + code,
                     "3 ddal_sshd_restart: " + step + code};
    };
    // The child's calls and the parent's wait count in the order of their happening, so either step may fail.
    Sweep("ddal_sshd_restart", [] { return ddal_sshd_restart(); })
        .judged_by([&](const Injected &injected, const Outcome &seen) {
            if (injected.call != "fork" && injected.call != "open") {
                EXPECT_EQ(seen.result, 0);
                EXPECT_THAT(seen.lines, ElementsAre(calling));
                return;
            }
            EXPECT_EQ(seen.result, injected.call == "fork" ? -injected.error : -1001);
            EXPECT_TRUE(seen.lines == after_failure("Reset failed counter error: ", injected) ||
                        seen.lines == after_failure("Unable to restart sshd service: ", injected));
        })
        .run();
    const auto not_started = [&](const std::string &step) {
        return fails(-1001, {calling, "3 ddal_sshd_restart: " + step + "127"});
    };
    Sweep("ddal_sshd_restart", [] { return ddal_sshd_restart(); })
        .only("exec")
        .before([] { std::filesystem::remove("/run/stub/log"); })
        .after([](const Outcome &seen) { // the daemon restarts only after a successful reset
            EXPECT_EQ(file_content("/run/stub/log").find("systemctl restart") != std::string::npos, seen.result == 0);
        })
        .succeeds(0, {calling})
        .when("exec",
              in_turn({not_started("Reset failed counter error: "), not_started("Unable to restart sshd service: ")}))
        .run();
}

} // namespace
