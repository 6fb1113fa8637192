// The common form of calls that take a path.
#pragma once

#include <fcntl.h>

#include "shim.h"

namespace vboard::shim {

inline unsigned link_rule(int flags)
{
    return (flags & AT_SYMLINK_NOFOLLOW) ? 0 : unsigned{kFollow};
}

inline bool is_empty_path(const char *path, int flags)
{
    return (flags & AT_EMPTY_PATH) && path && !path[0];
}

// Resolves one path, has one place for a fault, and calls `act` on the host path.
template <typename Act>
int on_path(const char *call, int directory, const char *path, unsigned how, Act act)
{
    Path where;
    if (!resolve(directory, path, how, where))
        return -1;
    if (!(how & kRemove))
        lead_to_file(where);
    Call around(call, where);
    if (around.fails())
        return -1;
    return static_cast<int>(around.done(act(where.host)));
}

template <typename Act>
int on_two_paths(const char *call, int directory1, const char *path1, unsigned how1, int directory2, const char *path2,
                 unsigned how2, Act act)
{
    Path from;
    Path to;
    if (!resolve(directory1, path1, how1, from) || !resolve(directory2, path2, how2, to))
        return -1;
    Call around(call, to);
    if (around.fails())
        return -1;
    return static_cast<int>(around.done(act(from.host, to.host)));
}

} // namespace vboard::shim
