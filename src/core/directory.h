// Directory chains.
#pragma once

#include <sys/types.h>

#include "core/unique_fd.h"

namespace ddal::core {

// Waits until the entries of an open directory are on the disk. Reports no failure: the change is already visible, and
// the caller's result stands for it. Keeps errno.
void sync_directory(int directory);

// Opens the directory of an absolute path for a later sync_directory(). Returns an empty owner with errno on failure.
UniqueFd open_directory_of(const char *path);

// Removes a file by its absolute path, so that it stays away after a power cut. A missing file is not a failure.
// Returns 0 or a negative errno.
int remove_file(const char *path);

} // namespace ddal::core

// Creates every missing directory of an absolute path. Returns 0 or a negative errno; logs nothing.
int ddal_common_mkdir_p(const char *path, mode_t mode);
