// Restricted root access on the board: its possible states, and the fixture that sets up one of them.
#pragma once

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "auth/service_accounts.h"
#include "support/sweep.h"

namespace testing_board {

using Lines = std::vector<std::string>;

struct State {
    std::string config;
    std::string password;
    bool flag;

    bool operator==(const State &) const = default;
};

inline void PrintTo(const State &state, std::ostream *out)
{
    *out << state.config << "password " << state.password << ", flag " << state.flag;
}

inline State state_now()
{
    return {file_content(kLiveConfig), password_hash("toor4qrx"), exists(kFlagFile)};
}

class RootAccess : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        install_daemon();
        authorise_key();
        put_file(kLiveConfig, "UsePAM yes\n"
                              "AllowUsers toor4qrx@* serviceuser@*\n"
                              "Match User serviceuser\n"
                              " X11Forwarding no\n"
                              " AllowTcpForwarding no\n"
                              " DisableForwarding yes\n");
        unrestricted_ = state_now();
        // The four settings in the order of their edits.
        const std::pair<const char *, const char *> edits[] = {
            {"AllowUsers toor4qrx@* serviceuser@*", "AllowUsers toor4qrx@127.0.0.1 toor4qrx@localhost serviceuser@*"},
            {" X11Forwarding no", " X11Forwarding yes"},
            {" AllowTcpForwarding no", " AllowTcpForwarding yes"},
            {" DisableForwarding yes", " DisableForwarding no"}};
        std::string config = unrestricted_.config;
        for (const auto &[unrestricted, restricted] : edits)
            config = with(config, unrestricted, restricted);
        restricted_ = {config, "!" + unrestricted_.password, true};
        for (const auto &[unrestricted, restricted] : edits) {
            lifted_.push_back(config);
            config = with(config, restricted, unrestricted);
        }
        lifted_.push_back(config);
    }
    void SetUp() override
    {
        authorise_key();
        put(unrestricted_);
    }
    static void put(const State &state)
    {
        put_file(kLiveConfig, state.config);
        give_own_attributes(kLiveConfig);
        const std::string hash = state.password;
        std::string shadow = "root:*:20000:0:99999:7:::\ntoor4qrx:" + hash + ":20000:0:99999:7:::\n";
        put_file("/etc/shadow", shadow + "serviceuser:factory:20000:0:99999:7:::\n");
        std::filesystem::remove(kFlagFile);
        if (state.flag)
            put_file(kFlagFile, "");
        std::filesystem::remove("/run/stub/log");
    }

    // Hundreds of tries need quick programs. The daemon and the key tool stay the real ones.
    static void use_quick_programs()
    {
        put_program("/bin/systemctl", "#!/bin/sh\n");
        put_program("/usr/bin/passwd", "#!/bin/sh\n[ \"$1\" = -u ] || lock='!'\n"
                                       "echo \"toor4qrx:${lock}" +
                                           unrestricted_.password + ":20000:0:99999:7:::\" >/etc/shadow\n");
    }

    static inline State unrestricted_;
    static inline State restricted_;
    static inline std::vector<std::string> lifted_; // the configuration after each step of lifting
};

inline std::string of_setting(const std::string &text)
{
    return "3 ddal_auth_set_restricted_root_access_state: " + text;
}

inline bool has(const Outcome &seen, const std::string &text)
{
    return std::any_of(seen.lines.begin(), seen.lines.end(),
                       [&](const std::string &line) { return line.find(text) != std::string::npos; });
}

inline constexpr const char *kRestarting = "6 ddal_sshd_restart: Calling ddal_sshd_restart";

} // namespace testing_board
