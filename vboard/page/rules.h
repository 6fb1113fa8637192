// Which paths belong to the board, which to the host. The longest matching prefix decides.
#pragma once

#include <cstdint>

namespace vboard {

enum class Policy : uint8_t {
    kBoard,    // only the board's files, reading and writing
    kOverlay,  // the board's file where there is one, else the host's for reading; writing makes the board's own copy
    kProgram,  // the board's programs; of the host's only those named kHost below
    kHost,     // the host's, never written
    kWritable, // the host's, also written
};

struct PathRule {
    const char *prefix;
    Policy policy;
};

// "/bin", "/sbin" and "/lib*" are folded into "/usr" before a rule is looked up.
constexpr PathRule kPathRules[] = {
    {"/", Policy::kOverlay},
    {"/rom", Policy::kBoard},
    {"/ffs", Policy::kBoard},
    {"/ram", Policy::kBoard},
    {"/flash", Policy::kBoard},
    {"/user", Policy::kBoard},
    {"/var", Policy::kBoard},
    {"/run", Policy::kBoard},
    {"/root", Policy::kBoard},
    {"/sys", Policy::kBoard},
    {"/mnt", Policy::kBoard},
    {"/tmp", Policy::kWritable},

    {"/etc", Policy::kBoard},
    {"/etc/ld.so.cache", Policy::kHost},
    {"/etc/ld.so.preload", Policy::kHost},
    {"/etc/locale.alias", Policy::kHost},
    {"/etc/localtime", Policy::kHost},
    {"/etc/mke2fs.conf", Policy::kHost},
    {"/etc/nsswitch.conf", Policy::kHost},
    {"/etc/ssl", Policy::kHost},
    {"/etc/gai.conf", Policy::kHost},
    {"/etc/alternatives", Policy::kHost},

    {"/dev", Policy::kBoard},
    {"/dev/null", Policy::kWritable},
    {"/dev/zero", Policy::kWritable},
    {"/dev/full", Policy::kWritable},
    {"/dev/random", Policy::kHost},
    {"/dev/urandom", Policy::kHost},
    {"/dev/tty", Policy::kWritable},
    {"/dev/ptmx", Policy::kWritable},
    {"/dev/pts", Policy::kWritable},
    {"/dev/fd", Policy::kHost},
    {"/dev/stdin", Policy::kHost},
    {"/dev/stdout", Policy::kHost},
    {"/dev/stderr", Policy::kHost},

    {"/proc", Policy::kBoard},
    {"/proc/self", Policy::kHost},
    {"/proc/thread-self", Policy::kHost},
    {"/proc/cpuinfo", Policy::kHost},
    {"/proc/filesystems", Policy::kHost},
    {"/proc/loadavg", Policy::kHost},
    {"/proc/locks", Policy::kHost},
    {"/proc/meminfo", Policy::kHost},
    {"/proc/stat", Policy::kHost},
    {"/proc/sys", Policy::kOverlay},
    {"/proc/uptime", Policy::kHost},
    {"/proc/version", Policy::kHost},

    {"/usr/bin", Policy::kProgram},
    {"/usr/sbin", Policy::kProgram},
};

// Programs of the host that board programs may run: the shell and what stubs are written with.
constexpr const char *kHostPrograms[] = {
    "sh",        "dash",   "bash",    "env",      "cat",      "cp",        "mv",        "rm",      "ln",
    "mkdir",     "rmdir",  "touch",   "chmod",    "chown",    "ls",        "echo",      "printf",  "sed",
    "grep",      "awk",    "gawk",    "mawk",     "head",     "tail",      "sort",      "cut",     "tr",
    "wc",        "od",     "xxd",     "sleep",    "true",     "false",     "test",      "[",       "expr",
    "date",      "dd",     "cmp",     "diff",     "stat",     "readlink",  "basename",  "dirname", "tee",
    "mktemp",    "seq",    "id",      "sync",     "kill",     "uname",     "find",      "xargs",   "truncate",
    "yes",       "flock",  "timeout", "strace",   "gdb",      "python3",   "mkfs.ext4", "mke2fs",  "ssh-keygen",
    "sha256sum", "md5sum", "nproc",   "valgrind", "mspdebug", "pamtester", "ddalctl",   "vboard",
};

} // namespace vboard
