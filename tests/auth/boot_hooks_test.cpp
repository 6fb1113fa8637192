// The boot hooks of this folder, each run alone with every call failing once.
#include "core/atboot.h"

#include <algorithm>
#include <filesystem>

#include <gtest/gtest.h>

#include "auth/pam_file.h"
#include "auth/root_access.h"
#include "support/property_rows.h"

using namespace testing_board;
using ddal::core::AtbootHook;
using ddal::core::AtbootPlace;

extern "C"
{
extern const AtbootHook *const __start_ddal_atboot[];
extern const AtbootHook *const __stop_ddal_atboot[];
}

namespace {

int run_hook(AtbootPlace place)
{
    const auto *const hook = std::find_if(__start_ddal_atboot, __stop_ddal_atboot,
                                          [&](const AtbootHook *candidate) { return candidate->place == place; });
    return hook == __stop_ddal_atboot ? -1 : (*hook)->entry.action();
}

constexpr const char *kStoredLength = "/rom/etc/security/pwhistory_remember";

TEST(PasswordHistoryHook, LeavesTheOldOrTheNewFile)
{
    const std::string before = distribution_pam_file();
    const std::string after = with(before, "remember=5", "remember=12");
    Sweep sweep("Restore PAM pwhistory settings", [] { return run_hook(AtbootPlace::password_history); });
    sweep
        .before([&] {
            put_file(kPamFile, before);
            put_file(kStoredLength, "12\n");
            give_own_attributes(kPamFile);
            give_own_attributes(kStoredLength);
        })
        .watch({"/etc/pam.d", "/rom/etc/security"})
        .after([&](const Outcome &seen) {
            const std::string pam = file_content(kPamFile);
            EXPECT_TRUE(pam == before || (pam == after && seen.result == 0)) << pam;
            EXPECT_EQ(file_content(kStoredLength), "12\n");
            EXPECT_EQ(attributes(kPamFile), kOwnAttributes);
            EXPECT_EQ(attributes(kStoredLength), kOwnAttributes);
            EXPECT_TRUE(is_unlocked(kPamFile) && is_unlocked(kStoredLength));
        })
        .when("open/ENOENT:/rom/etc/security*", changes_nothing()); // a length was never set
    expect_quiet_failures(sweep, before);
    sweep.run();
    EXPECT_EQ(file_content(kPamFile), after) << "nothing failed in the last try";
}

constexpr const char *kSkip = "/proc/device-tree/security/skip_passwd_init";
constexpr const char *kRunDirectory = "/var/run/sshd";

class RootAccessHook : public RootAccess {
protected:
    void SetUp() override
    {
        RootAccess::SetUp();
        use_quick_programs();
    }
    void TearDown() override { std::filesystem::remove(kSkip); }
};

TEST_F(RootAccessHook, AppliesNothingWhereTheUnitSkipsIt)
{
    const State before = {unrestricted_.config, unrestricted_.password, true};
    const std::string reading = std::string("3 skip_passwd_init: reading ") + kSkip + ": error: ";
    const Expectation no_directory = [](const Injected &injected, const Outcome &) {
        const std::string code = std::to_string(-injected.error);
        return Outcome{-injected.error, {"3 create_dir: Creating dir /var/run/sshd error: " + code + " "}};
    };
    Sweep sweep("Init restricted root access, skipped", [] { return run_hook(AtbootPlace::root_access); });
    add_reading(sweep, kSkip, {reading + "%d"})
        .succeeds(0, {"6 init_restricted_root_access: Resticted root access is disabled"})
        .before([&] {
            put(before);
            put_file(kSkip, "1");
            std::filesystem::remove(kRunDirectory);
        })
        .watch({"/etc", "/etc/ssh", "/ffs/run/etc"})
        .after([&](const Outcome &) { EXPECT_EQ(state_now(), before); })
        .when("stat", no_directory)
        .when("mkdir", no_directory)
        .when("access", fails_with_errno(std::string("3 ddal_auth_get_restricted_root_access_state: cannot access ") +
                                         kFlagFile + " file: %m"))
        .when("fread/end", fails(-61, {reading + "-61"}))
        .run();
}

// An error causes the rollback: the flag is removed with the restriction, and the unit starts in its factory state.
TEST_F(RootAccessHook, EndsEnabledOrRolledBack)
{
    // Steps whose failure affects the mode: the programs, the flag file, and the end of each edit.
    for (const char *place : {"exec", "fork", "open:/ffs/*", "close:/ffs/*", "fsync", "rename"})
        Sweep("Init restricted root access", [] { return run_hook(AtbootPlace::root_access); })
            .only(place)
            .before([] {
                put({unrestricted_.config, unrestricted_.password, true});
                put_file(kSkip, "0");
            })
            .watch({"/etc", "/etc/ssh"})
            .judged_by([](const Injected &, const Outcome &seen) {
                const bool checked = !has(seen, "configuration check");
                const State flagged = {unrestricted_.config, unrestricted_.password, true};
                EXPECT_EQ(state_now(), seen.result == 0 ? restricted_ : checked ? unrestricted_ : flagged);
                EXPECT_EQ(seen.lines.back(), seen.result == 0
                                                 ? "6 init_restricted_root_access: Resticted root access is enabled"
                                                 : "3 init_restricted_root_access: restricted root access enable "
                                                   "error: " +
                                                       std::to_string(seen.result));
                EXPECT_EQ(attributes(kLiveConfig), kOwnAttributes);
                EXPECT_TRUE(is_unlocked(kLiveConfig));
            })
            .run();
}

} // namespace
