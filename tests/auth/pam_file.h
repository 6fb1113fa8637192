// The PAM file of passwords as the distribution writes it, and the outcome of its edit for every failure.
#pragma once

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "auth/service_accounts.h"
#include "support/sweep.h"

namespace testing_board {

// Returns the distribution's file as its tool writes it, with the history module in front of the password store.
inline std::string distribution_pam_file()
{
    std::string text = file_content("/usr/share/pam/common-password");
    text = with(text, "$password_primary",
                "password\trequisite\t\t\tpam_pwhistory.so remember=5 use_authtok\n"
                "password\t[success=1 default=ignore]\tpam_unix.so obscure use_authtok try_first_pass yescrypt");
    return with(text, "$password_additional", "");
}

// Expects that an edit of `pam` reports each failure by its result alone and logs nothing.
inline void expect_quiet_failures(Sweep &sweep, const std::string &pam)
{
    const Expectation short_transfer = fails(-EIO, {});
    const Expectation fails_with_its_errno = fails_with_errno_or(-EIO, {});
    // The lines before the one with the number, that one in three pieces, the rest of the file. A write can fail in two
    // ways.
    const std::string before = pam.substr(0, pam.find("remember="));
    const auto pieces = static_cast<size_t>(std::count(before.begin(), before.end(), '\n')) + 3;
    std::vector<Expectation> writes(2 * pieces, short_transfer);
    writes.push_back(fails_with_its_errno);

    sweep.when("flock/EINTR", changes_nothing())
        .when("close", changes_nothing())
        .when("fclose", changes_nothing())
        .when("fread/short", short_transfer)
        .when("fread/end", short_transfer)
        .when("poll", changes_nothing())
        .when("ftell", short_transfer)
        .when("fsync:/etc/pam.d", changes_nothing())
        .when("fsync:/rom/etc/security", changes_nothing())
        .when("fsync:/rom/etc/security/opasswd", changes_nothing())
        .when("fwrite:/etc/pam.d/#*", in_turn(writes));
    for (const char *call : {"open", "flock", "stat", "fstat", "fdopen", "getline", "fread/EIO", "fwrite", "fflush",
                             "fsync", "fchmod", "fchown", "link", "rename"})
        sweep.when(call, fails_with_its_errno);
}

} // namespace testing_board
