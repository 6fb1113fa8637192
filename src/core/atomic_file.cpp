#include "core/atomic_file.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <new>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/log.h"
#include "core/replacement.h"
#include "core/sleep.h"
#include "core/stream.h"
#include "core/text.h"

using namespace ddal::core;

namespace {

constexpr size_t kPathSize = 4096;
constexpr mode_t kNewFileMode = 0600;
constexpr time_t kLockSeconds = 20;
constexpr uint64_t kLockPauseUs = 2000;

bool fail_with(int error)
{
    errno = error;
    return false;
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
        if (errno != EWOULDBLOCK) {
            ddal::core::note_access(fd);
            return false;
        }
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

} // namespace

namespace ddal::core {

struct AtomicFile::Mode {
    bool valid;
    bool writes;
    bool creates;
    bool copies;

    static constexpr Mode parse(const char *mode)
    {
        switch (mode[0]) {
        case 'r': return {true, mode[1] == '+', false, true};
        case 'w': return {true, true, true, false};
        case 'a': return {true, true, true, true};
        default: return {};
        }
    }
};

AtomicFile::AtomicFile(const char *path, const char *mode)
{
    const Mode parsed = Mode::parse(mode);
    if (!parsed.valid)
        errno = EINVAL;
    else if (!open_all(path, parsed, mode))
        drop();
}

int AtomicFile::commit()
{
    const int result = writer_ ? replace() : 0;
    drop();
    return result;
}

// Keeps errno.
void AtomicFile::drop()
{
    const int saved_errno = errno;
    if (temporary_)
        unlinkat(directory_.get(), temporary_.get(), 0);
    temporary_ = {};
    writer_.reset();
    directory_.reset();
    reader_.reset();
    errno = saved_errno;
}

// The functions below return false, or an empty owner, with errno set.

bool AtomicFile::open_directory(const char *path)
{
    char directory[kPathSize];
    if (ddal_common_strlcpy(directory, path, sizeof directory) >= sizeof directory)
        return fail_with(ENAMETOOLONG);
    char *slash = strrchr(directory, '/');
    const char *name = slash ? slash + 1 : directory;
    if (*name == '\0')
        return fail_with(EISDIR);
    if (ddal_common_strlcpy(base_name_, name, sizeof base_name_) >= sizeof base_name_)
        return fail_with(ENAMETOOLONG);

    if (slash)
        slash[slash == directory ? 1 : 0] = '\0';
    // Open for reading where that is allowed, to find the files that killed writers have left.
    const char *const path_of_directory = slash ? directory : ".";
    directory_.reset(open(path_of_directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory_ && errno == EACCES)
        directory_.reset(open(path_of_directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_PATH));
    return static_cast<bool>(directory_);
}

// Finds out whether the locked file still has the target's name: it can have been replaced during the wait for the
// lock.
bool AtomicFile::is_current(int fd, bool *current) const
{
    struct stat locked;
    struct stat named;
    *current = false;
    if (fstat(fd, &locked) != 0)
        return false;
    if (fstatat(directory_.get(), base_name_, &named, 0) != 0)
        return errno == ENOENT;
    *current = locked.st_dev == named.st_dev && locked.st_ino == named.st_ino;
    return true;
}

UniqueFd AtomicFile::open_locked(const Mode &mode) const
{
    const int flags = O_RDONLY | O_CLOEXEC | (mode.creates ? O_CREAT : 0);
    for (;;) {
        UniqueFd fd{openat(directory_.get(), base_name_, flags, kNewFileMode)};
        bool current = false;
        if (!fd || !lock(fd.get(), mode.writes ? LOCK_EX : LOCK_SH) || !is_current(fd.get(), &current))
            return UniqueFd{};
        if (current)
            return fd;
    }
}

bool AtomicFile::open_writer(const Mode &mode, const char *mode_text)
{
    UniqueFd fd = create_replacement(directory_.get(), temporary_);
    if (!fd)
        return false;
    if (mode.copies) {
        const int result = copy_file_splice(fileno(reader_.get()), fd.get());
        if (result != 0)
            return fail_with(-result);
    }
    // Opened only now: the append flag of "a" would make the splice fail.
    writer_ = UniqueStream::from(std::move(fd), mode_text);
    return static_cast<bool>(writer_);
}

bool AtomicFile::open_all(const char *path, const Mode &mode, const char *mode_text)
{
    if (!open_directory(path))
        return false;
    UniqueFd fd = open_locked(mode);
    if (!fd)
        return false;
    reader_ = UniqueStream::from(std::move(fd), "r");
    if (!reader_)
        return false;
    if (!mode.writes) {
        directory_.reset();
        return true;
    }
    if (!open_writer(mode, mode_text))
        return false;
    remove_abandoned(directory_.get(), fileno(reader_.get()));
    return true;
}

int AtomicFile::replace()
{
    if (ferror(reader_.get())) // the copy of its content may be incomplete
        return -EIO;
    const int fd = fileno(writer_.get());
    errno = 0;
    // The stream's error flag reports bytes lost before this last flush.
    if (flush_stream(writer_.get()) != 0 || ferror(writer_.get()))
        return minus_errno();
    // Syncs the whole file before it takes the target's place: a power cut could otherwise leave an empty file, or one
    // that the target's users may not read.
    struct stat target;
    if (fstat(fileno(reader_.get()), &target) != 0 || fchmod(fd, target.st_mode & ALLPERMS) != 0 ||
        fchown(fd, target.st_uid, target.st_gid) != 0 || fsync(fd) != 0)
        return minus_errno();

    return put_in_place(fd, directory_.get(), base_name_);
}

} // namespace ddal::core

struct ddal_common_atomic_file {
    ddal::core::AtomicFile file;
};

ddal_common_atomic_file *ddal_common_atomic_open(const char *path, const char *mode)
{
    std::unique_ptr<ddal_common_atomic_file> handle{new (std::nothrow) ddal_common_atomic_file{{path, mode}}};
    if (handle && !handle->file)
        handle.reset();
    return handle.release();
}

FILE *ddal_common_atomic_reader(ddal_common_atomic_file *h)
{
    return h->file.reader();
}

FILE *ddal_common_atomic_writer(ddal_common_atomic_file *h)
{
    return h->file.writer();
}

int ddal_common_atomic_close(ddal_common_atomic_file *h, int commit)
{
    const std::unique_ptr<ddal_common_atomic_file> handle{h};
    return commit ? handle->file.commit() : 0;
}
