#include "cli/mounts.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mount.h>

namespace vboard {

void check(long result, const std::string &what)
{
    if (result < 0)
        throw FenceError(what + ": " + std::strerror(errno));
}

UniqueFd copy_of(const std::string &path)
{
    return UniqueFd{
        open_tree(AT_FDCWD, path.c_str(), OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_RECURSIVE | AT_NO_AUTOMOUNT)};
}

void put(const UniqueFd &copy, const std::string &path)
{
    check(move_mount(copy.get(), "", AT_FDCWD, path.c_str(), MOVE_MOUNT_F_EMPTY_PATH), "move_mount " + path);
}

void make_read_only(int directory, const char *path, unsigned flags)
{
    mount_attr attributes{};
    attributes.attr_set = MOUNT_ATTR_RDONLY;
    check(mount_setattr(directory, path, flags, &attributes, sizeof attributes), "mount_setattr");
}

std::vector<Place> copies_of(const std::vector<std::string> &paths)
{
    std::vector<Place> places;
    for (const std::string &path : paths) {
        places.push_back({path, copy_of(path)});
        check(places.back().copy.get(), "open_tree " + path);
    }
    return places;
}

bool is_below(const std::string &path, const std::string &folder)
{
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

} // namespace vboard
