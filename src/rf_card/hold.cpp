#include "rf_card/hold.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "core/log.h"
#include "core/unique_stream.h"

namespace ddal::rf_card {

namespace {

// Parses "3: FLOCK  ADVISORY  WRITE 4711 00:17:9 0 EOF". A process that waits for a lock has "->" before FLOCK.
int holder_in(const char *line, const struct stat &file)
{
    int pid = 0;
    unsigned device_major = 0;
    unsigned device_minor = 0;
    unsigned long long inode = 0;
    if (sscanf(line, "%*u: FLOCK %*s WRITE %d %x:%x:%llu", &pid, &device_major, &device_minor, &inode) != 4)
        return 0;
    const bool same = device_major == major(file.st_dev) && device_minor == minor(file.st_dev) && inode == file.st_ino;
    return same ? pid : 0;
}

// Returns the process that took the file's lock, or 0 when it cannot be found.
int lock_holder(int fd)
{
    struct stat file;
    const core::UniqueStream locks{fopen("/proc/locks", "re")};
    if (!locks || fstat(fd, &file) != 0)
        return 0;
    char line[256];
    int pid = 0;
    while (pid == 0 && fgets(line, sizeof line, locks.get()))
        pid = holder_in(line, file);
    return pid;
}

} // namespace

// The lock belongs to the open file instead of the process, so it also keeps threads of one process apart.
int hold_uart(int fd)
{
    while (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EINTR)
            continue;
        core::note_access(fd);
        if (errno != EWOULDBLOCK)
            return core::minus_errno();
        const int pid = lock_holder(fd);
        if (pid > 0)
            return log_error(-EBUSY, "RF card is in use by process %d\n", pid);
        return log_error(-EBUSY, "RF card is in use by another process\n");
    }
    return 0;
}

} // namespace ddal::rf_card
