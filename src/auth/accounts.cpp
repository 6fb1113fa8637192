#include "auth/accounts.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <pwd.h>
#include <unistd.h>

#include "core/text.h"

namespace ddal::auth {

namespace {

constexpr long kDefaultEntrySize = 4096;

} // namespace

bool is_supported_user(const char *user)
{
    return strcmp(user, kPrivilegedUser) == 0 || strcmp(user, kServiceUser) == 0;
}

int find_account(const char *user, char *home, size_t n)
{
    const long suggested = sysconf(_SC_GETPW_R_SIZE_MAX);
    const auto size = static_cast<size_t>(suggested > 0 ? suggested : kDefaultEntrySize);
    const std::unique_ptr<char[]> buffer{new (std::nothrow) char[size]};
    if (!buffer)
        return ENOMEM;

    passwd entry;
    passwd *found = nullptr;
    int error = 0;
    do
        error = getpwnam_r(user, &entry, buffer.get(), size, &found);
    while (error == EINTR);
    if (!found)
        return error != 0 ? error : -ENOENT;
    ddal_common_strlcpy(home, entry.pw_dir, n);
    return 0;
}

} // namespace ddal::auth
