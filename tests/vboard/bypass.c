/*
 * Tries the ways from a board to the machine, each in a separate process, and prints "<way> reached" or "<way> held".
 * The test looks at the files as well.
 *
 * usage: bypass --machine READY        offers what the ways lead to, and writes its PORT and PROCESS to the file READY
 *        bypass PORT PROCESS [STATIC]  STATIC: this program, linked statically, to be executed afterwards
 */
#include <errno.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <linux/fs.h>
#include <netinet/in.h>
#include <shadow.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/msg.h>
#include <sys/prctl.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <utmpx.h>
#include <wordexp.h>

static const char kFile[] = "/srv/file";
static const char kMemory[] = "/bypass";
static const char kSocket[] = "/run/bypass";
static const key_t kQueue = 0x62797061;
static int port;
static pid_t victim;

static int read_only(void)
{
    return open(kFile, O_RDONLY);
}

static int by_link(void)
{
    unlink("/srv/link");
    return linkat(read_only(), "", AT_FDCWD, "/srv/link", AT_EMPTY_PATH) == 0 && truncate("/srv/link", 1) == 0;
}

static int by_mode(void)
{
    return fchmod(read_only(), 0777) == 0;
}

static int by_owner(void)
{
    return fchown(read_only(), 12, 12) == 0;
}

static int by_times(void)
{
    const struct timespec old[2] = {{1, 0}, {1, 0}};
    return futimens(read_only(), old) == 0;
}

static int by_attribute(void)
{
    return fsetxattr(read_only(), "user.bypass", "x", 1, 0) == 0;
}

static int by_flags(void)
{
    int flags = 0x40; /* no dump */
    return ioctl(read_only(), FS_IOC_SETFLAGS, &flags) == 0;
}

static int by_new_mount(void)
{
    const int context = fsopen("tmpfs", 0);
    return context >= 0 && fsconfig(context, FSCONFIG_CMD_CREATE, NULL, NULL, 0) == 0 && fsmount(context, 0, 0) >= 0;
}

static off_t size_of_file(void)
{
    struct statx info;
    return syscall(SYS_statx, AT_FDCWD, kFile, 0, STATX_SIZE, &info) == 0 ? (long)info.stx_size : 0;
}

static int by_account_lock(void)
{
    lckpwdf();
    return 0;
}

/* inside the fence a static program changes the board's /etc */
static int by_host_id(void)
{
    return sethostid(0x1234) == 0 && syscall(SYS_access, "/etc/bypass", F_OK) == 0;
}

static int by_login_record(void)
{
    const off_t before = size_of_file();
    struct utmpx entry;
    memset(&entry, 0, sizeof entry);
    updwtmpx(kFile, &entry);
    return size_of_file() != before;
}

static int by_shared_memory(void)
{
    return shm_open(kMemory, O_RDWR, 0) >= 0;
}

static int by_word(void)
{
    wordexp_t words;
    return wordexp("$(echo x >/srv/word)", &words, 0) == 0 && syscall(SYS_access, "/srv/word", F_OK) == 0;
}

static int by_system_v(void)
{
    return msgget(kQueue, 0) >= 0;
}

static int by_tcp(void)
{
    const struct sockaddr_in name = {
        .sin_family = AF_INET, .sin_port = htons((uint16_t)port), .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
    return connect(socket(AF_INET, SOCK_STREAM, 0), (const struct sockaddr *)&name, sizeof name) == 0;
}

static int by_signal(void)
{
    return kill(victim, 0) == 0;
}

static int by_raw_open(void)
{
    return syscall(SYS_openat, AT_FDCWD, "/srv/raw", O_WRONLY | O_CREAT, 0666) >= 0;
}

static int by_raw_name(void)
{
    return syscall(SYS_sethostname, "bypass", 6) == 0;
}

static int by_raw_mount(void)
{
    return syscall(SYS_mount, "none", "/opt", "tmpfs", 0, NULL) == 0;
}

static int by_raw_node(void)
{
    return syscall(SYS_mknodat, AT_FDCWD, "/tmp/bypass.null", S_IFCHR | 0600, 0x103) == 0;
}

/* without a try: the clock is the machine's in every namespace */
static int by_raw_clock(void)
{
    return prctl(PR_CAPBSET_READ, CAP_SYS_TIME) == 1 || prctl(PR_CAPBSET_READ, CAP_SYS_BOOT) == 1 ||
           prctl(PR_CAPBSET_READ, CAP_SYS_MODULE) == 1;
}

static int by_raw_setting(void)
{
    return syscall(SYS_openat, AT_FDCWD, "/proc/sys/kernel/core_pattern", O_WRONLY) >= 0;
}

/* the board's /etc lies over the machine's; the standard input is a copy */
static int by_raw_file(void)
{
    char text[7] = "";
    syscall(SYS_fchmod, STDIN_FILENO, 0777);
    return syscall(SYS_openat, AT_FDCWD, "/etc/bypass", O_RDONLY) >= 0 ||
           pread(STDIN_FILENO, text, sizeof text, 0) != sizeof text || memcmp(text, "machine", sizeof text) != 0;
}

/* descriptor 9 is the machine's /srv */
static int by_raw_folder(void)
{
    return syscall(SYS_openat, 9, "through-folder", O_WRONLY | O_CREAT, 0666) >= 0;
}

static int by_raw_socket(void)
{
    const struct sockaddr_un name = {AF_UNIX, "/run/bypass"};
    return syscall(SYS_connect, socket(AF_UNIX, SOCK_STREAM, 0), &name, sizeof name) == 0;
}

static const struct {
    const char *name;
    int (*reaches)(void);
} kWays[] = {
    {"link", by_link},
    {"mode", by_mode},
    {"owner", by_owner},
    {"times", by_times},
    {"attribute", by_attribute},
    {"flags", by_flags},
    {"new-mount", by_new_mount},
    {"account-lock", by_account_lock},
    {"host-id", by_host_id},
    {"login-record", by_login_record},
    {"shared-memory", by_shared_memory},
    {"word", by_word},
    {"system-v", by_system_v},
    {"tcp", by_tcp},
    {"signal", by_signal},
    {"raw-open", by_raw_open},
    {"raw-name", by_raw_name},
    {"raw-mount", by_raw_mount},
    {"raw-node", by_raw_node},
    {"raw-clock", by_raw_clock},
    {"raw-setting", by_raw_setting},
    {"raw-file", by_raw_file},
    {"raw-folder", by_raw_folder},
    {"raw-socket", by_raw_socket},
};

/* Plays the machine that the ways lead to: offers what is not a file in the test's tree, and waits. */
static int be_machine(const char *ready)
{
    struct sockaddr_in name = {.sin_family = AF_INET, .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
    struct sockaddr_un path = {AF_UNIX, ""};
    socklen_t length = sizeof name;
    const int tcp = socket(AF_INET, SOCK_STREAM, 0);
    const int local = socket(AF_UNIX, SOCK_STREAM, 0);
    strcpy(path.sun_path, kSocket);
    if (bind(tcp, (struct sockaddr *)&name, sizeof name) != 0 || listen(tcp, 64) != 0 ||
        getsockname(tcp, (struct sockaddr *)&name, &length) != 0 ||
        bind(local, (struct sockaddr *)&path, sizeof path) != 0 || listen(local, 64) != 0 ||
        msgget(kQueue, IPC_CREAT | 0666) < 0 || shm_open(kMemory, O_RDWR | O_CREAT, 0666) < 0) {
        perror("machine");
        return 1;
    }
    FILE *out = fopen(ready, "w");
    fprintf(out, "%d %d\n", ntohs(name.sin_port), (int)getpid());
    fclose(out);
    pause();
    return 0;
}

int main(int argc, char **argv)
{
    if (argc == 3 && strcmp(argv[1], "--machine") == 0)
        return be_machine(argv[2]);
    if (argc < 3)
        return 2;
    port = atoi(argv[1]);
    victim = atoi(argv[2]);
    for (size_t i = 0; i < sizeof kWays / sizeof kWays[0]; ++i) {
        const pid_t child = fork();
        if (child == 0)
            _exit(kWays[i].reaches() ? 0 : 1);
        int status = 0;
        waitpid(child, &status, 0);
        printf("%s %s\n", kWays[i].name, status == 0 ? "reached" : "held");
        fflush(stdout);
    }
    if (argc == 3)
        return 0;
    /* vboard does not start a static program; the kernel does */
    char *arguments[] = {argv[3], argv[1], argv[2], NULL};
    syscall(SYS_execve, argv[3], arguments, NULL);
    perror(argv[3]);
    return 1;
}
