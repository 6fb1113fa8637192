#include "core/atomic_file.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <new>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/fresh_name.h"
#include "core/log.h"
#include "core/replacement.h"
#include "core/sleep.h"
#include "core/stream.h"
#include "core/text.h"
#include "core/unique_fd.h"
#include "core/unique_stream.h"

using namespace ddal::core;

struct ddal_common_atomic_file {
    UniqueStream reader; // of the locked target
    UniqueFd directory;
    UniqueStream writer; // not open in a read-only handle
    FreshName temporary; // empty while the replacement has no name
    char base_name[NAME_MAX + 1];
};

namespace {

constexpr size_t kPathSize = 4096;
constexpr mode_t kNewFileMode = 0600;
constexpr time_t kLockSeconds = 20;
constexpr uint64_t kLockPauseUs = 2000;

struct Mode {
    bool valid;
    bool writes;
    bool creates;
    bool copies;
};

constexpr Mode parse_mode(const char *mode)
{
    switch (mode[0]) {
    case 'r': return {true, mode[1] == '+', false, true};
    case 'w': return {true, true, true, false};
    case 'a': return {true, true, true, true};
    default: return {};
    }
}

// The functions below return false, or an empty owner, with errno set.

bool fail_with(int error)
{
    errno = error;
    return false;
}

bool open_directory(ddal_common_atomic_file &file, const char *path)
{
    char directory[kPathSize];
    if (ddal_common_strlcpy(directory, path, sizeof directory) >= sizeof directory)
        return fail_with(ENAMETOOLONG);
    char *slash = strrchr(directory, '/');
    const char *name = slash ? slash + 1 : directory;
    if (*name == '\0')
        return fail_with(EISDIR);
    if (ddal_common_strlcpy(file.base_name, name, sizeof file.base_name) >= sizeof file.base_name)
        return fail_with(ENAMETOOLONG);

    if (slash)
        slash[slash == directory ? 1 : 0] = '\0';
    // Open for reading where that is allowed, to find the files that killed writers have left.
    const char *const path_of_directory = slash ? directory : ".";
    file.directory.reset(open(path_of_directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!file.directory && errno == EACCES)
        file.directory.reset(open(path_of_directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_PATH));
    return static_cast<bool>(file.directory);
}

bool is_over(const timespec &end)
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec > end.tv_sec || (now.tv_sec == end.tv_sec && now.tv_nsec >= end.tv_nsec);
}

// Any user who can read the file can also hold its lock, so the wait has a limit.
bool lock(int fd, int operation)
{
    timespec end{};
    while (flock(fd, operation | LOCK_NB) != 0) {
        if (errno == EINTR)
            continue;
        if (errno != EWOULDBLOCK)
            return false;
        if (end.tv_sec == 0) {
            clock_gettime(CLOCK_MONOTONIC, &end);
            end.tv_sec += kLockSeconds;
        } else if (is_over(end)) {
            return fail_with(EBUSY);
        }
        sleep_us(kLockPauseUs);
    }
    return true;
}

// Returns 1 if the locked file still has the target's name, 0 if it was replaced during the wait for the lock, or -1
// with errno.
int still_current(const ddal_common_atomic_file &file, int fd)
{
    struct stat locked;
    struct stat named;
    if (fstat(fd, &locked) != 0)
        return -1;
    if (fstatat(file.directory.get(), file.base_name, &named, 0) != 0)
        return errno == ENOENT ? 0 : -1;
    return locked.st_dev == named.st_dev && locked.st_ino == named.st_ino ? 1 : 0;
}

UniqueFd open_locked(const ddal_common_atomic_file &file, const Mode &mode)
{
    const int flags = O_RDONLY | O_CLOEXEC | (mode.creates ? O_CREAT : 0);
    for (;;) {
        UniqueFd fd{openat(file.directory.get(), file.base_name, flags, kNewFileMode)};
        if (!fd || !lock(fd.get(), mode.writes ? LOCK_EX : LOCK_SH))
            return UniqueFd{};
        const int current = still_current(file, fd.get());
        if (current != 0)
            return current > 0 ? std::move(fd) : UniqueFd{};
    }
}

bool open_writer(ddal_common_atomic_file &file, const Mode &mode, const char *mode_text)
{
    UniqueFd fd = create_replacement(file.directory.get(), file.temporary);
    if (!fd)
        return false;
    if (mode.copies) {
        const int result = copy_file_splice(fileno(file.reader.get()), fd.get());
        if (result != 0)
            return fail_with(-result);
    }
    // Opened only now: the append flag of "a" would make the splice fail.
    file.writer = UniqueStream::from(std::move(fd), mode_text);
    return static_cast<bool>(file.writer);
}

bool open_all(ddal_common_atomic_file &file, const char *path, const Mode &mode, const char *mode_text)
{
    if (!open_directory(file, path))
        return false;
    UniqueFd fd = open_locked(file, mode);
    if (!fd)
        return false;
    file.reader = UniqueStream::from(std::move(fd), "r");
    if (!file.reader)
        return false;
    if (!mode.writes) {
        file.directory.reset();
        return true;
    }
    if (!open_writer(file, mode, mode_text))
        return false;
    remove_abandoned(file.directory.get(), fileno(file.reader.get()));
    return true;
}

int commit_replacement(ddal_common_atomic_file &file)
{
    if (ferror(file.reader.get())) // the copy of its content may be incomplete
        return -EIO;
    const int fd = fileno(file.writer.get());
    errno = 0;
    // The stream's error flag reports bytes lost before this last flush.
    if (flush_stream(file.writer.get()) != 0 || ferror(file.writer.get()))
        return minus_errno();
    // Syncs the whole file before it takes the target's place: a power cut could otherwise leave an empty file, or one
    // that the target's users may not read.
    struct stat target;
    if (fstat(fileno(file.reader.get()), &target) != 0 || fchmod(fd, target.st_mode & ALLPERMS) != 0 ||
        fchown(fd, target.st_uid, target.st_gid) != 0 || fsync(fd) != 0)
        return minus_errno();

    return put_in_place(fd, file.directory.get(), file.base_name);
}

} // namespace

ddal_common_atomic_file *ddal_common_atomic_open(const char *path, const char *mode)
{
    const Mode parsed = parse_mode(mode);
    if (!parsed.valid) {
        errno = EINVAL;
        return nullptr;
    }
    AtomicFile file{new (std::nothrow) ddal_common_atomic_file{}};
    if (!file || !open_all(*file, path, parsed, mode)) {
        const int saved_errno = errno;
        file.reset();
        errno = saved_errno;
    }
    return file.release();
}

FILE *ddal_common_atomic_reader(ddal_common_atomic_file *h)
{
    return h->reader.get();
}

FILE *ddal_common_atomic_writer(ddal_common_atomic_file *h)
{
    return h->writer.get();
}

int ddal_common_atomic_close(ddal_common_atomic_file *h, int commit)
{
    const std::unique_ptr<ddal_common_atomic_file> file{h};
    int result = 0;
    if (commit && file->writer)
        result = commit_replacement(*file);
    if (file->temporary)
        unlinkat(file->directory.get(), file->temporary.get(), 0);
    return result;
}
