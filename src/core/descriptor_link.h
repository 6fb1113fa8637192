// The link under which /proc shows an open descriptor of this process.
#pragma once

#include <cstdio>

namespace ddal::core {

class DescriptorLink {
public:
    explicit DescriptorLink(int fd) { snprintf(path_, sizeof path_, "/proc/self/fd/%d", fd); }
    const char *path() const { return path_; }

private:
    char path_[sizeof "/proc/self/fd/" + 3 * sizeof(int)];
};

} // namespace ddal::core
