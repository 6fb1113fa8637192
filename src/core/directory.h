// Directory chains.
#pragma once

#include <sys/types.h>

#include "core/unique_fd.h"

namespace ddal::core {

// Creates every missing directory of an absolute path. Returns 0 or a negative errno; logs nothing.
int ddal_common_mkdir_p(const char *path, mode_t mode);

// Waits until the entries of an open directory are on the disk. A failure is not reported: what was changed is there
// for all to see, and a result tells of that. errno survives.
void sync_directory(int directory);

// Opens the directory of an absolute path, to be synced when an entry of it has changed. Empty with errno on failure.
UniqueFd open_directory_of(const char *path);

// Removes a file by its absolute path, for good: it stays away after a power cut. A file that is not there is no
// failure. Returns 0 or a negative errno.
int remove_file(const char *path);

} // namespace ddal::core
