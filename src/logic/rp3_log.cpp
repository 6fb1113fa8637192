#include "logic/rp3_log.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <semaphore.h>
#include <sys/file.h>
#include <unistd.h>
#include <utility>

#include "core/log.h"
#include "core/stream.h"
#include "core/unique_fd.h"
#include "core/unique_stream.h"

using namespace ddal::core;

namespace ddal::logic {

namespace {

// Names of functions in the log.
constexpr const char *kCaller = "ddal_rp3_validate_aif";
constexpr const char *kResize = "resize_log_file";

constexpr size_t kCopyBlock = 100;
constexpr mode_t kFileMode = 0666;
constexpr mode_t kSemaphoreMode = 0666;
constexpr unsigned kSemaphoreFree = 1;

// Does not follow a link in place of a file: where others may write to the folder, it could lead to any file.
UniqueStream open_file(const char *path, int flags, const char *mode)
{
    return UniqueStream::from(UniqueFd{open(path, flags | O_NOFOLLOW | O_CLOEXEC, kFileMode)}, mode);
}

// Opens the log for appending. The lock on the open log shows others that a live process has the semaphore. Does not
// wait for the lock, and needs no lock to write the entry.
FILE *open_log()
{
    UniqueStream log = open_file(kLinkLog, O_WRONLY | O_APPEND | O_CREAT, "a");
    if (log)
        static_cast<void>(flock(fileno(log.get()), LOCK_EX | LOCK_NB));
    return log.release();
}

// Copies the rest of `from`. Returns 0, or -1 with errno.
int copy_rest(FILE *from, FILE *to)
{
    char block[kCopyBlock];
    size_t n;
    while ((n = read_stream(from, block, sizeof block)) > 0) {
        if (write_stream(to, block, n) != n)
            return -1;
    }
    // Synced before it takes the log's place: a power cut could otherwise leave an empty log.
    return ferror(from) || flush_stream(to) != 0 || fsync(fileno(to)) != 0 ? -1 : 0;
}

// Keeps errno for the caller's log line.
void remove_temporary()
{
    const int saved_errno = errno;
    unlink(kLinkLogTemporary);
    errno = saved_errno;
}

// Copies the log from offset `skip` on into the temporary file. Leaves no temporary file behind on failure.
int write_temporary(off_t skip)
{
    const UniqueStream from = open_file(kLinkLog, O_RDONLY, "r");
    if (!from)
        return log_error_as(kResize, DDAL_ERR_FAILURE, "Cannot open %s\n", kLinkLog);
    unlink(kLinkLogTemporary); // left by a killed process
    const UniqueStream to = open_file(kLinkLogTemporary, O_WRONLY | O_CREAT | O_EXCL, "w");
    if (!to) {
        log_line_as(LOG_ERR, kResize, "Cannot open %s\n", kLinkLogTemporary);
        remove_temporary();
        return DDAL_ERR_FAILURE;
    }

    if (fseeko(from.get(), skip, SEEK_SET) != 0)
        log_line_as(LOG_ERR, kResize, "Cannot change position in %s\n", kLinkLog);
    else if (copy_rest(from.get(), to.get()) != 0)
        log_line_as(LOG_ERR, kResize, "Error during resizing  %s\n", kLinkLog);
    else
        return 0;

    remove_temporary();
    return DDAL_ERR_FAILURE;
}

int write_entry(FILE *log, const char *event, const char *text)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);

    const int n =
        print_stream(log, "%04u-%02u-%02u %02u:%02u:%02u.%06ld %s \n%s\n", static_cast<unsigned>(local.tm_year) + 1900,
                     static_cast<unsigned>(local.tm_mon) + 1, static_cast<unsigned>(local.tm_mday),
                     static_cast<unsigned>(local.tm_hour), static_cast<unsigned>(local.tm_min),
                     static_cast<unsigned>(local.tm_sec), static_cast<long>(now.tv_nsec / 1000), event, text);
    return n >= 0 && flush_stream(log) == 0 ? 0 : -1;
}

int append_locked(const char *event, const char *text)
{
    FILE *log = open_log();
    if (!log)
        return log_error_as(kCaller, DDAL_ERR_FAILURE, "Cannot open %s: %m\n", kLinkLog);

    int result = resize_log_file(&log, strlen(event) + strlen(text));
    const UniqueStream owned{log};
    if (result != 0) {
        log_line_as(LOG_ERR, kCaller, "Failure during resizing %s: %m\n", kLinkLog);
    } else if (write_entry(log, event, text) != 0) {
        result = log_error_as(kCaller, DDAL_ERR_FAILURE, "Error during writing to %s\n", kLinkLog);
    }
    return result;
}

} // namespace

int resize_log_file(FILE **log, size_t add_len)
{
    fseeko(*log, 0, SEEK_END);
    const off_t wanted = ftello(*log) + static_cast<off_t>(add_len);
    if (wanted <= static_cast<off_t>(kLinkLogLimit))
        return 0;

    fclose(std::exchange(*log, nullptr));
    if (write_temporary(wanted - static_cast<off_t>(kLinkLogLimit)) != 0)
        return DDAL_ERR_FAILURE;
    if (rename(kLinkLogTemporary, kLinkLog) != 0) {
        log_line(LOG_ERR, "Error during renaming  %s\n", kLinkLog);
        remove_temporary();
        return DDAL_ERR_FAILURE;
    }
    *log = open_log();
    if (!*log)
        return log_error(DDAL_ERR_FAILURE, "Cannot open %s\n", kLinkLog);
    return 0;
}

int append_link_log(const char *event, const char *text)
{
    sem_t *const semaphore = sem_open(kLinkLogSemaphore, O_CREAT, kSemaphoreMode, kSemaphoreFree);
    if (semaphore == SEM_FAILED)
        return log_error_as(kCaller, DDAL_ERR_FAILURE, "Log file semaphore open error: %m\n");

    int result;
    if (TEMP_FAILURE_RETRY(sem_wait(semaphore)) == 0) {
        result = append_locked(event, text);
    } else { // kept: the semaphore is posted even after a failed wait
        result = log_error_as(kCaller, DDAL_ERR_FAILURE, "Log file semaphore wait error: %m\n");
    }

    if (sem_post(semaphore) != 0)
        result = log_error_as(kCaller, DDAL_ERR_FAILURE, "Log file semaphore post error: %m\n");
    if (sem_close(semaphore) != 0)
        result = log_error_as(kCaller, DDAL_ERR_FAILURE, "Log file semaphore close error: %m\n");
    return result;
}

} // namespace ddal::logic
