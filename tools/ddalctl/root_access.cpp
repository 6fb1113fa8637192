// ddalctl root-access: remote logins of the privileged account.
#include <ddal/auth.h>

#include <cerrno>
#include <fstream>
#include <pwd.h>

#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/output_aside.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

constexpr const char *kPrivilegedUser = "toor4qrx";

bool has_key(const std::string &path)
{
    std::ifstream keys(path);
    for (std::string line; std::getline(keys, line);)
        if (const size_t first = line.find_first_not_of(" \t\r"); first != std::string::npos && line[first] != '#')
            return true;
    return false;
}

// The library refuses as well, but its result does not distinguish this failure from others.
void require_key()
{
    const passwd *const account = getpwnam(kPrivilegedUser);
    if (!account)
        throw Failure(-ENOENT, kNothingThere, std::string(kPrivilegedUser) + " is not an account of this board");
    const std::string path = std::string(account->pw_dir) + "/.ssh/authorized_keys";
    if (!has_key(path))
        throw Failure(-ENOKEY, kOperationFailed,
                      std::string(kPrivilegedUser) + " has no authorized key in " + path +
                          ", so that it could not log in any more; nothing was changed");
}

void report_state(Report &report)
{
    uint32_t state = DDAL_ROOT_ACCESS_UNRESTRICTED;
    require(DDAL(ddal_auth_get_restricted_root_access_state)(&state));
    report.add("root-access", state == DDAL_ROOT_ACCESS_RESTRICTED ? "restricted" : "unrestricted");
}

void status(const Arguments &, Report &report)
{
    report_state(report);
}

void change(uint32_t state)
{
    require(quietly([&] { return DDAL(ddal_auth_set_restricted_root_access_state)(state); }));
}

void restrict_access(const Arguments &, Report &)
{
    auto *const get_state = DDAL(ddal_auth_get_restricted_root_access_state); // report a missing board first
    static_cast<void>(get_state);
    require_key();
    change(DDAL_ROOT_ACCESS_RESTRICTED);
}

void lift(const Arguments &, Report &)
{
    change(DDAL_ROOT_ACCESS_UNRESTRICTED);
}

} // namespace

Family root_access_family()
{
    return {"root-access",
            "remote logins of the privileged account",
            {
                {"status", "show whether root access is restricted", {}, status},
                {"restrict",
                 "allow the privileged account to log in from the board itself only, with a key only",
                 {},
                 restrict_access},
                {"lift", "lift the restriction", {}, lift},
            }};
}

} // namespace ddalctl
