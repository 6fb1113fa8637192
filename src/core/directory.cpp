#include "core/directory.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>

#include "core/log.h"
#include "core/unique_fd.h"

namespace ddal::core {

namespace {

constexpr int kWalkFlags = O_DIRECTORY | O_PATH | O_CLOEXEC;

// Replaces `dir` by its entry `name`, creating that first unless it is "..".
int step_into(UniqueFd &dir, const char *name, mode_t mode)
{
    if (strcmp(name, "..") != 0 && mkdirat(dir.get(), name, mode) != 0 && errno != EEXIST)
        return minus_errno();
    UniqueFd next{openat(dir.get(), name, kWalkFlags)};
    if (!next)
        return minus_errno();
    dir = std::move(next);
    return 0;
}

int walk(UniqueFd &dir, std::string_view rest, mode_t mode)
{
    while (!rest.empty()) {
        const std::string_view component = rest.substr(0, rest.find('/'));
        rest.remove_prefix(component.size() < rest.size() ? component.size() + 1 : component.size());
        if (component.empty() || component == ".")
            continue;

        char name[NAME_MAX + 1];
        if (component.size() > NAME_MAX)
            return -ENAMETOOLONG;
        name[component.copy(name, NAME_MAX)] = '\0';
        const int result = step_into(dir, name, mode);
        if (result != 0)
            return result;
    }
    return 0;
}

} // namespace

int ddal_common_mkdir_p(const char *path, mode_t mode)
{
    if (!path || path[0] != '/')
        return -EINVAL;

    struct stat existing;
    if (stat(path, &existing) == 0)
        return S_ISDIR(existing.st_mode) ? 0 : -ENOTDIR;
    if (errno != ENOENT)
        return minus_errno();

    UniqueFd dir{open("/", kWalkFlags)};
    if (!dir)
        return minus_errno();
    return walk(dir, path, mode);
}

} // namespace ddal::core
