// Plausible failures of each call, one row per call. A sweep tries every entry.
#pragma once

#include <cerrno>
#include <cstdint>

namespace vboard {

constexpr uint32_t kMaxFailures = 4;

struct CallFailures {
    const char *call;
    int errors[kMaxFailures]; // closed by 0
    bool shortens;            // may also move fewer bytes, or 0
};

constexpr CallFailures kCallFailures[] = {
    {"open", {ENOENT, EMFILE, 0}, false},
    {"fopen", {EACCES, EMFILE, 0}, false},
    {"fdopen", {ENOMEM, 0}, false},
    {"read", {EIO, EINTR, 0}, true},
    {"write", {EIO, EINTR, 0}, true},
    {"pread", {EIO, EINTR, 0}, true},
    {"pwrite", {EIO, EINTR, 0}, true},
    {"fread", {EIO, EINTR, 0}, true},
    {"fwrite", {EIO, ENOSPC, EINTR, 0}, false}, // EINTR only while the thread accepts signals
    {"getline", {EIO, EINTR, 0}, false},
    {"fflush", {ENOSPC, EINTR, 0}, false},
    {"fseek", {EINVAL, 0}, false},
    {"ftell", {EINVAL, 0}, false},
    {"fclose", {EIO, EINTR, 0}, false},
    {"close", {EIO, 0}, false},
    {"ioctl", {EIO, EINTR, 0}, false},
    {"mmap", {ENOMEM, 0}, false},
    {"munmap", {EINVAL, 0}, false},
    {"flock", {EINTR, ENOLCK, 0}, false},
    {"lseek", {EINVAL, 0}, false},
    {"fstat", {EIO, 0}, false},
    {"stat", {EACCES, 0}, false},
    {"access", {EACCES, 0}, false},
    {"mkdir", {EROFS, 0}, false},
    {"unlink", {EROFS, 0}, false},
    {"rename", {EIO, 0}, false},
    {"link", {EIO, 0}, false},
    {"symlink", {EIO, 0}, false},
    {"readlink", {EACCES, 0}, false},
    {"chmod", {EPERM, 0}, false},
    {"chown", {EPERM, 0}, false},
    {"fchmod", {EPERM, 0}, false},
    {"fchown", {EPERM, 0}, false},
    {"truncate", {EIO, 0}, false},
    {"ftruncate", {EIO, 0}, false},
    {"fsync", {EIO, 0}, false},
    {"fdatasync", {EIO, 0}, false},
    {"splice", {EIO, EINTR, 0}, false},
    {"pipe", {EMFILE, 0}, false},
    {"fork", {EAGAIN, 0}, false}, // also clone
    {"waitpid", {EINTR, 0}, false},
    {"exec", {EACCES, 0}, false}, // only for rules that name it
    {"poll", {EINTR, ENOMEM, 0}, false},
    {"select", {EINTR, ENOMEM, 0}, false},
    {"socket", {EMFILE, 0}, false},
    {"connect", {ECONNREFUSED, 0}, false},
    {"setsockopt", {ENOPROTOOPT, 0}, false},
    {"send", {EPIPE, EINTR, 0}, false},
    {"recv", {ECONNRESET, EINTR, 0}, true},
    {"eventfd", {EMFILE, 0}, false},
    {"sem_open", {EACCES, 0}, false},
    {"pthread_create", {EAGAIN, 0}, false},
    {"tcsetattr", {EIO, 0}, false},
    {"tcgetattr", {ENOTTY, 0}, false},
    {"opendir", {EMFILE, 0}, false},
    {"readdir", {EIO, 0}, false},
    {"clock_gettime", {EINVAL, 0}, false},
};

// Further calls that a rule may name; a sweep does not fail them.
constexpr const char *kOtherCalls[] = {"chdir", "mkfifo", "statfs", "utimens", "xattr"};

} // namespace vboard
