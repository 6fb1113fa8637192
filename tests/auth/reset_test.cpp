// Factory passwords and factory keys: the restored state, and the state after each failed step.
#include <ddal/auth.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "auth/service_accounts.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

TEST(ResetPassword, RestoresTheFactoryPassword)
{
    char text[64];
    ASSERT_EQ(ddal_auth_set_user_password("toor4qrx", "other-password-1", text, sizeof text), 0) << text;
    ASSERT_TRUE(exists("/flash/config/toor4qrx/.passwd"));
    EXPECT_EQ(ddal_auth_reset_user_password("toor4qrx"), 0);
    EXPECT_EQ(password_hash("toor4qrx"), "factory");
    EXPECT_FALSE(exists("/flash/config/toor4qrx/.passwd"));
    EXPECT_EQ(ddal_auth_reset_user_password("toor4qrx"), 0) << "a missing file is not a failure";

    LogWatch log;
    EXPECT_EQ(ddal_auth_reset_user_password(nullptr), -EINVAL);
    EXPECT_EQ(ddal_auth_reset_user_password("root"), -1027);
    EXPECT_EQ(ddal_auth_reset_user_password("Serviceuser"), -1027);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_auth_reset_user_password: username is null",
                                        "3 ddal_auth_reset_user_password: user root is not supported",
                                        "3 ddal_auth_reset_user_password: user Serviceuser is not supported"));
}

constexpr const char *kStoredHash = "/flash/config/toor4qrx/.passwd";

TEST(ResetPassword, SurvivesEveryFailure)
{
    const std::string failed = "3 ddal_auth_reset_user_password: ";
    const Expectation not_run = [&](const Injected &injected, const Outcome &) {
        const std::string code = std::to_string(-injected.error);
        return Outcome{-1001,
                       {"3 _ddal_common_shell_command: system ('/usr/sbin/initpassword') failed: " + code,
                        failed + "user toor4qrx init password error: " + code}};
    };
    const Expectation not_started = fails(-1001, {failed + "user toor4qrx init password error: 127"});
    const Expectation undeleted = [&](const Injected &injected, const Outcome &) {
        const std::string code = std::to_string(-injected.error);
        return Outcome{-1001, {failed + "could not delete .passwd for user toor4qrx, error: " + code}};
    };
    // Without its folder the file does not exist, so there is nothing to delete.
    const Expectation deleted_or_not = [&](const Injected &injected, const Outcome &success) {
        return injected.error == ENOENT ? success : undeleted(injected, success);
    };
    Sweep sweep("ddal_auth_reset_user_password", [] { return ddal_auth_reset_user_password("toor4qrx"); });
    sweep
        .before([] {
            put_file("/etc/shadow", "toor4qrx:changed:20000:0:99999:7:::\nserviceuser:own:20000:0:99999:7:::\n");
            put_file(kStoredHash, "changed\n");
        })
        .watch({"/etc", "/etc/default/toor4qrx"})
        .after([&](const Outcome &seen) {
            const bool deleting_failed = !seen.lines.empty() && seen.lines.back().find("delete") != std::string::npos;
            EXPECT_EQ(password_hash("toor4qrx"), seen.result == 0 || deleting_failed ? "factory" : "changed");
            EXPECT_EQ(password_hash("serviceuser"), "own");
            EXPECT_TRUE(!exists(kStoredHash) || seen.result != 0);
        })
        .when("fork", not_run)
        .when("open:/dev/null", not_started)
        .when("open:/proc/*", not_started)
        .when("exec", not_started)
        .when("open:/flash/*", deleted_or_not)
        .when("unlink", undeleted)
        .when("fsync", changes_nothing());
    sweep.run();
    sweep.only("exec").run();
}

constexpr const char *kKeys = "/user/serviceuser/.ssh/authorized_keys";
constexpr const char *kDefault = "/etc/default/serviceuser/ssh/authorized_keys";

TEST(ResetKeys, ReplacesThemByTheFactoryKeys)
{
    put_file(kKeys, "ssh-ed25519 old\n");
    chmod(kKeys, 0644);
    put_file(kDefault, "ssh-ed25519 factory\n");
    ASSERT_EQ(chmod(kDefault, 0600), 0);
    ASSERT_EQ(chown(kDefault, 12, 34), 0);
    LogWatch log;
    EXPECT_EQ(ddal_auth_reset_user_ssh_keys("serviceuser"), 0);
    EXPECT_EQ(file_content(kKeys), "ssh-ed25519 factory\n");
    EXPECT_EQ(attributes(kKeys), "600 12:34");

    EXPECT_EQ(ddal_auth_reset_user_ssh_keys(nullptr), -EINVAL);
    EXPECT_EQ(ddal_auth_reset_user_ssh_keys("root"), -1027);
    EXPECT_EQ(ddal_auth_reset_user_ssh_keys("../../etc"), -1027);
    EXPECT_EQ(ddal_auth_reset_user_ssh_keys("serviceuser2"), -1027);
    EXPECT_THAT(log.take(), ElementsAreArray({"3 ddal_auth_reset_user_ssh_keys: username is null",
                                              "3 ddal_auth_reset_user_ssh_keys: user root is not supported",
                                              "3 ddal_auth_reset_user_ssh_keys: user ../../etc is not supported",
                                              "3 ddal_auth_reset_user_ssh_keys: user serviceuser2 is not supported"}));
}

// The user owns the folders below the home and may put links there that lead to files of others.
TEST(ResetKeys, DoesNotFollowLinksOfTheUser)
{
    const std::string home = "/user/serviceuser", others = "/user/toor4qrx/.ssh/authorized_keys";
    put_file(others, "ssh-ed25519 privileged\n");
    put_file(kDefault, "ssh-ed25519 factory\n");
    give_own_attributes(kDefault);
    const std::string before = attributes(others);
    struct Case {
        std::string plant;
        int result;
    };
    for (const Case &c : {Case{"ln -s " + others + " " + kKeys, 0}, Case{"ln " + others + " " + kKeys, 0},
                          Case{"rm -r " + home + "/.ssh; ln -s /user/toor4qrx/.ssh " + home + "/.ssh", -1001}}) {
        std::filesystem::remove_all(home + "/.ssh");
        std::filesystem::create_directories(home + "/.ssh");
        ASSERT_EQ(system(c.plant.c_str()), 0);
        EXPECT_EQ(ddal_auth_reset_user_ssh_keys("serviceuser"), c.result) << c.plant;
        EXPECT_EQ(file_content(others), "ssh-ed25519 privileged\n") << c.plant;
        EXPECT_EQ(attributes(others), before) << c.plant;
        EXPECT_EQ(file_content(kKeys), c.result == 0 ? "ssh-ed25519 factory\n" : "ssh-ed25519 privileged\n") << c.plant;
    }
    std::filesystem::remove(home + "/.ssh");
    std::filesystem::create_directory(home + "/.ssh");
}

TEST(ResetKeys, SurvivesEveryFailure)
{
    const std::string old_keys = "ssh-ed25519 old\n";
    const std::string new_keys = "ssh-ed25519 factory\n";
    const std::string overriding = "3 ddal_auth_reset_user_ssh_keys: serviceuser authorized keys override error: ";
    // `sign` is the sign of the error number that the copy returns.
    const auto copying_failed = [&](int sign, const std::string &line = "") -> Expectation {
        return [=](const Injected &injected, const Outcome &success) {
            Outcome outcome = {-1001, {overriding + std::to_string(sign * injected.error)}};
            if (!line.empty())
                outcome.lines.insert(outcome.lines.begin(), fails(0, {line})(injected, success).lines[0]);
            return outcome;
        };
    };
    const Expectation not_created =
        copying_failed(-1, std::string("3 ddal_common_copy_file: error create ") + kKeys + ": %m");
    unlink(kKeys);
    put_file(kKeys, old_keys);
    const std::string old_attributes = attributes(kKeys);
    Sweep("ddal_auth_reset_user_ssh_keys", [] { return ddal_auth_reset_user_ssh_keys("serviceuser"); })
        .before([&] {
            unlink(kKeys);
            put_file(kKeys, old_keys);
            put_file(kDefault, new_keys);
            give_own_attributes(kDefault);
        })
        .watch({"/user/serviceuser/.ssh", "/etc/default/serviceuser/ssh"})
        .after([&](const Outcome &seen) {
            const bool replaced = seen.result == 0;
            const std::string keys = file_content(kKeys);
            EXPECT_TRUE(replaced ? new_keys.starts_with(keys) : keys == old_keys) << keys; // the source may end early
            EXPECT_EQ(attributes(kKeys), replaced ? kOwnAttributes : old_attributes);
            EXPECT_EQ(file_content(kDefault), new_keys);
        })
        .when("stat", copying_failed(-1))
        .when("poll", changes_nothing())
        .when("fopen:/etc/*",
              copying_failed(-1, std::string("3 ddal_common_copy_file: error open ") + kDefault + ": %m"))
        .when("open:/user/*", not_created)
        .when("flock/ENOLCK", not_created)
        .when("fdopen", not_created)
        .when("link", not_created)
        .when("rename", not_created)
        .when("fchown", fails(-1001, {overriding + "1"})) // kept: the copy returns 1 for these two
        .when("fchmod", fails(-1001, {overriding + "1"}))
        .when("fread/EIO", copying_failed(+1)) // kept: and a positive number for these two
        .when("fread/end", changes_nothing())  // an empty file
        .when("fwrite", copying_failed(+1))
        .when("fflush", fails(-1001, {overriding + "-5"}))
        .when("fsync:/user/serviceuser/.ssh", changes_nothing())
        .when("fsync", fails(-1001, {overriding + "-5"}))
        .when("fclose", changes_nothing())
        .run();
}

} // namespace
