// Mounts of a mount namespace that a process builds for the board's programs.
#pragma once

#include <string>
#include <vector>

#include "cli/walls.h"
#include "core/unique_fd.h"

namespace vboard {

using ddal::core::UniqueFd;

// Throws FenceError, with errno's text, for a negative result.
void check(long result, const std::string &what);

// Copies what a path shows, with all mounts below it. `put` shows the copy. Invalid if the path does not exist.
UniqueFd copy_of(const std::string &path);

// Shows a copy at a path.
void put(const UniqueFd &copy, const std::string &path);

// Makes a path of a folder read-only, with all mounts below it.
void make_read_only(int directory, const char *path, unsigned flags);

struct Place {
    std::string path;
    UniqueFd copy;
};

// Copies each of the paths. Throws FenceError for one that does not exist.
std::vector<Place> copies_of(const std::vector<std::string> &paths);

bool is_below(const std::string &path, const std::string &folder);

} // namespace vboard
