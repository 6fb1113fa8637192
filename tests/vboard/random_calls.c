/*
 * Calls functions of libc and system calls at random, each in a child process, with arguments that could mean
 * something: names and descriptors of the machine's files, flags, buffers.
 *
 * usage: random_calls SEED COUNT [show]
 */
#include <dlfcn.h>
#include <elf.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <link.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

enum { kMostNames = 4096, kMostMs = 100, kLastCall = 470 };

static const char *names[kMostNames];
static size_t name_count;
static uint64_t state;

static uint64_t next(uint64_t limit)
{
    state += 0x9e3779b97f4a7c15;
    uint64_t z = (state ^ state >> 30) * 0xbf58476d1ce4e5b9;
    z = (z ^ z >> 27) * 0x94d049bb133111eb;
    return (z ^ z >> 31) % limit;
}

/* Lists the functions that libc exports. The names lie between the symbols and their texts. */
static void list_functions(void)
{
    struct link_map *libc = dlopen("libc.so.6", RTLD_NOW | RTLD_NOLOAD);
    const ElfW(Sym) *symbol = NULL;
    const char *texts = NULL;
    for (const ElfW(Dyn) *entry = libc->l_ld; entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == DT_SYMTAB)
            symbol = (const void *)entry->d_un.d_ptr;
        if (entry->d_tag == DT_STRTAB)
            texts = (const void *)entry->d_un.d_ptr;
    }
    for (; (const char *)symbol < texts && name_count < kMostNames; ++symbol) {
        const int type = ELF64_ST_TYPE(symbol->st_info);
        if (symbol->st_shndx != SHN_UNDEF && (type == STT_FUNC || type == STT_GNU_IFUNC))
            names[name_count++] = texts + symbol->st_name;
    }
}

/* A call must not end or slow the processes beside it: the fence keeps those of the machine out of reach anyway. */
static void leave_other_processes_alone(void)
{
    static const int kCalls[] = {SYS_kill,
                                 SYS_tkill,
                                 SYS_tgkill,
                                 SYS_rt_sigqueueinfo,
                                 SYS_ptrace,
                                 SYS_rt_tgsigqueueinfo,
                                 SYS_pidfd_send_signal,
                                 SYS_process_vm_writev,
                                 SYS_prlimit64,
                                 SYS_setpriority,
                                 SYS_sched_setscheduler,
                                 SYS_sched_setattr,
                                 SYS_sched_setaffinity};
    enum { kCount = sizeof kCalls / sizeof kCalls[0] };
    struct sock_filter steps[2 * kCount + 2];
    struct sock_filter *step = steps;
    *step++ = (struct sock_filter)BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr));
    for (size_t i = 0; i < kCount; ++i) {
        *step++ = (struct sock_filter)BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, (unsigned)kCalls[i], 0, 1);
        *step++ = (struct sock_filter)BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM);
    }
    *step = (struct sock_filter)BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
    const struct sock_fprog filter = {2 * kCount + 2, steps};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0)
        _exit(1);
}

static long argument(void)
{
    static const char *const kTexts[] = {"/srv/file",
                                         "/srv/new",
                                         "/srv",
                                         "/etc/bypass",
                                         "/etc/new",
                                         "/usr/new",
                                         "file",
                                         "new",
                                         "w",
                                         "r+",
                                         "echo x >/srv/word",
                                         "/dev/sda",
                                         "/proc/sys/kernel/hostname",
                                         "/run/bypass",
                                         "/bin/sh",
                                         "user.bypass",
                                         "tmpfs",
                                         ""};
    static const long kNumbers[] = {0,
                                    1,
                                    -1,
                                    2,
                                    3,
                                    8,
                                    64,
                                    4096,
                                    0777,
                                    0644,
                                    AT_FDCWD,
                                    AT_EMPTY_PATH,
                                    S_IFREG | 0666,
                                    S_IFCHR | 0666,
                                    O_WRONLY | O_CREAT,
                                    O_RDWR | O_CREAT | O_TRUNC,
                                    0x40086602,
                                    LONG_MAX};
    static char buffer[1 << 16] = "machine";
    static char *arguments[] = {"sh", "-c", "echo x >/srv/word", NULL};
    static struct sockaddr_un name = {AF_UNIX, "/run/bypass"};
    static struct iovec part = {buffer, 16};
    switch (next(8)) {
    case 0:
    case 1:
    case 2: return (long)kTexts[next(sizeof kTexts / sizeof kTexts[0])];
    case 3:
    case 4: return kNumbers[next(sizeof kNumbers / sizeof kNumbers[0])];
    case 5: return 6 + (long)next(4); /* a file read-only, a file's path, a new pipe, the machine's /srv */
    case 6: return (long)buffer;
    default: return next(3) == 0 ? (long)arguments : next(2) ? (long)&name : (long)&part;
    }
}

/* Returns the name of what is called. A third goes past the preload library: to libc's function, or to the kernel. */
static const char *call(void)
{
    typedef long function(long, long, long, long, long, long);
    const uint64_t way = next(6);
    const char *name = way == 0 ? "syscall" : names[next(name_count)];
    function *found = (function *)dlsym(way == 1 ? dlopen("libc.so.6", RTLD_NOW | RTLD_NOLOAD) : RTLD_DEFAULT, name);
    const long first = way == 0 ? (long)next(kLastCall) : argument();
    const long more[] = {argument(), argument(), argument(), argument(), argument()};
    if (found)
        found(first, more[0], more[1], more[2], more[3], more[4]);
    return name;
}

static void be_child(const char *shown)
{
    const struct rlimit none = {0, 0};
    const struct rlimit small = {1 << 20, 1 << 20};
    const int null = open("/dev/null", O_RDWR);
    int ends[2];
    setrlimit(RLIMIT_CORE, &none);
    setrlimit(RLIMIT_FSIZE, &small);
    leave_other_processes_alone();
    dup2(open("/srv/file", O_RDONLY), 6);
    dup2(open("/srv", O_PATH), 7);
    if (pipe(ends) == 0)
        dup2(ends[1], 8);
    for (int fd = 0; fd < 3 && !shown; ++fd)
        dup2(null, fd);
    const char *name = call();
    if (shown)
        fprintf(stderr, "%s\n", name);
    _exit(0);
}

int main(int argc, char **argv)
{
    if (argc < 3)
        return 2;
    list_functions();
    const uint64_t seed = strtoull(argv[1], NULL, 0);
    const int count = atoi(argv[2]);
    int tried = 0;
    for (; tried < count; ++tried) {
        state = seed * 1000003 + (uint64_t)tried;
        const pid_t child = fork();
        if (child == 0)
            be_child(argv[3]);
        struct pollfd end = {(int)syscall(SYS_pidfd_open, child, 0), POLLIN, 0};
        if (child < 0 || end.fd < 0)
            break;
        if (poll(&end, 1, kMostMs) == 0)
            kill(child, SIGKILL);
        waitpid(child, NULL, 0);
        close(end.fd);
    }
    printf("tried %d\n", name_count > 1000 ? tried : 0);
    return 0;
}
