// Directory chains.
#pragma once

#include <sys/types.h>

namespace ddal::core {

// Creates every missing directory of an absolute path. Returns 0 or a negative errno; logs nothing.
int ddal_common_mkdir_p(const char *path, mode_t mode);

} // namespace ddal::core
