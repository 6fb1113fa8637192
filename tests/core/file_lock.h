// The lock of a file that is replaced as a whole.
#pragma once

#include <string>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

// Reports whether the file is unlocked.
inline bool is_unlocked(const std::string &path)
{
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool unlocked = flock(fd, LOCK_EX | LOCK_NB) == 0;
    close(fd);
    return unlocked;
}
