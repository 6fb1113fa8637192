#include "core/directory.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>

#include "core/log.h"
#include "core/text.h"
#include "core/unique_fd.h"

namespace ddal::core {

namespace {

constexpr int kWalkFlags = O_DIRECTORY | O_PATH | O_CLOEXEC;

// Creates `name` if it is missing, and syncs it: the content of a directory survives a power cut only if its entry
// does.
int make_entry(int dir, const char *name, mode_t mode)
{
    if (mkdirat(dir, name, mode) != 0)
        return errno == EEXIST ? 0 : minus_errno();
    const UniqueFd readable{openat(dir, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    if (!readable)
        return minus_errno();
    sync_directory(readable.get());
    return 0;
}

// Replaces `dir` by its entry `name`, which it creates first unless it is "..".
int step_into(UniqueFd &dir, const char *name, mode_t mode)
{
    const int made = strcmp(name, "..") != 0 ? make_entry(dir.get(), name, mode) : 0;
    if (made != 0)
        return made;
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

void sync_directory(int directory)
{
    const int saved_errno = errno;
    static_cast<void>(fsync(directory));
    errno = saved_errno;
}

UniqueFd open_directory_of(const char *path)
{
    char directory[PATH_MAX];
    if (ddal_common_strlcpy(directory, path, sizeof directory) >= sizeof directory) {
        errno = ENAMETOOLONG;
        return UniqueFd{};
    }
    strrchr(directory, '/')[1] = '\0';
    return UniqueFd{open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
}

int remove_file(const char *path)
{
    // Opened first: the step that is likely to fail comes before the file is gone.
    const UniqueFd directory = open_directory_of(path);
    if (!directory && errno != ENOENT)
        return minus_errno();
    if (unlink(path) != 0)
        return errno == ENOENT ? 0 : minus_errno();
    sync_directory(directory.get());
    return 0;
}

} // namespace ddal::core

using namespace ddal::core;

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
