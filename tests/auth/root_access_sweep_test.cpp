// Restricted root access with every call failing once: it ends enabled, rolled back, or stopped at the documented step.
#include <ddal/auth.h>

#include <algorithm>

#include <gtest/gtest.h>

#include "auth/root_access.h"
#include "support/sweep.h"

using namespace testing_board;

namespace {

class RootAccessSweep : public RootAccess {
protected:
    void SetUp() override
    {
        RootAccess::SetUp();
        use_quick_programs();
    }
    // The real daemon judges the possible texts once; a quick one is enough where every call fails.
    static void use_quick_daemon()
    {
        for (const std::string &config : lifted_)
            ASSERT_TRUE(daemon_accepts(config));
        put_program("/usr/sbin/sshd", "#!/bin/sh\nwhile read -r line; do :; done\n");
    }
    // The last line reports how the whole operation ended. Only lines of the rollback may follow the first failure.
    static void check_lines(const Outcome &seen, const std::string &what)
    {
        if (seen.result == 0) {
            EXPECT_EQ(seen.lines, Lines{kRestarting});
            return;
        }
        const std::string ended = what + " error: " + std::to_string(seen.result);
        const std::string restart = "SSHD service restart error: " + std::to_string(seen.result);
        EXPECT_TRUE(seen.lines.back() == of_setting("restricted root access " + ended) ||
                    seen.lines.back() == of_setting(restart));
        EXPECT_LE(seen.lines.size(), 5u);
    }

    static Sweep enabling()
    {
        Sweep sweep("enabling the restriction", [] { return ddal_auth_set_restricted_root_access_state(0); });
        sweep.before([] { put(unrestricted_); }).watch({"/etc/ssh", "/etc"});
        sweep.judged_by([](const Injected &, const Outcome &seen) {
            check_lines(seen, "enable");
            const bool enabled = seen.result == 0 || has(seen, "SSHD service restart error");
            EXPECT_EQ(state_now(), enabled ? restricted_ : unrestricted_);
            EXPECT_FALSE(has(seen, "restricted_root_access_disable")) << "a single failure does not stop the rollback";
            const int reasons = has(seen, "configuration check") + has(seen, "lock toor4qrx") +
                                has(seen, "enable SSH forwarding") + has(seen, "flag file create");
            EXPECT_EQ(reasons, enabled ? 0 : 1);
            EXPECT_EQ(attributes(kLiveConfig), kOwnAttributes);
            EXPECT_TRUE(is_unlocked(kLiveConfig));
        });
        return sweep;
    }
    static Sweep lifting()
    {
        Sweep sweep("lifting the restriction", [] { return ddal_auth_set_restricted_root_access_state(1); });
        sweep.before([] { put(restricted_); }).watch({"/etc/ssh", "/etc"});
        sweep.judged_by([](const Injected &, const Outcome &seen) {
            check_lines(seen, "disable");
            const State state = state_now();
            const auto done = std::find(lifted_.begin(), lifted_.end(), state.config);
            ASSERT_NE(done, lifted_.end()) << "half an edit:\n" << state.config;
            EXPECT_EQ(state.flag, has(seen, "flag file remove"));
            EXPECT_EQ(state.password == restricted_.password, state.flag || has(seen, "unlock toor4qrx"));
            const bool all = seen.result == 0 || has(seen, "SSHD service restart error");
            EXPECT_EQ(state == unrestricted_, all);
            EXPECT_EQ(has(seen, "disable SSH forwarding"), !all && state.password == unrestricted_.password);
            EXPECT_EQ(attributes(kLiveConfig), kOwnAttributes);
            EXPECT_TRUE(is_unlocked(kLiveConfig));
        });
        return sweep;
    }
};

TEST_F(RootAccessSweep, EnablingEndsEnabledOrRolledBack)
{
    use_quick_daemon();
    enabling().run();
}

TEST_F(RootAccessSweep, LiftingStopsWhereItFails)
{
    use_quick_daemon();
    lifting().run();
}

} // namespace
