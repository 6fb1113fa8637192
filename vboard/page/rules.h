// Paths of the board and paths of the host. The longest matching prefix decides.
#pragma once

#include <cstdint>

namespace vboard {

enum class Policy : uint8_t {
    kBoard, // only the board's files, reading and writing
    // Reads the board's file if there is one, else the host's. A write makes a copy on the board first.
    kOverlay,
    kProgram,  // the board's programs, and of the host's only kHostPrograms
    kHost,     // the host's, never written
    kWritable, // the host's, writable
};

struct PathRule {
    const char *prefix;
    Policy policy;
};

// "/bin", "/sbin" and "/lib*" are folded into "/usr" before the lookup of a rule.
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

// Programs of the host that board programs may run: the shell and the tools of the stubs.
constexpr const char *kHostPrograms[] = {
    "sh",        "dash",   "bash",    "env",      "cat",      "cp",        "mv",        "rm",      "ln",
    "mkdir",     "rmdir",  "touch",   "chmod",    "chown",    "ls",        "echo",      "printf",  "sed",
    "grep",      "awk",    "gawk",    "mawk",     "head",     "tail",      "sort",      "cut",     "tr",
    "wc",        "od",     "xxd",     "sleep",    "true",     "false",     "test",      "[",       "expr",
    "date",      "dd",     "cmp",     "diff",     "stat",     "readlink",  "basename",  "dirname", "tee",
    "mktemp",    "seq",    "id",      "sync",     "kill",     "uname",     "find",      "xargs",   "truncate",
    "yes",       "flock",  "timeout", "strace",   "gdb",      "python3",   "mkfs.ext4", "mke2fs",  "ssh-keygen",
    "sha256sum", "md5sum", "nproc",   "valgrind", "mspdebug", "pamtester", "ddalctl",   "vboard",  "perl",
    "tclsh",     "lua",    "ruby",    "zsh",
};

} // namespace vboard
