/*
 * Tries to change the host in every way that an application could, directly and by accident. Prints one line per
 * attempt that claims to have reached something that only the host has. The test then compares the host before and
 * after.
 *
 * usage: intruder [<descriptor of the host's /etc, opened before the board>]
 *        intruder --flags    prints the flags of the interface "lo"
 */
#include <errno.h>
#include <fcntl.h>
#include <net/if.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <time.h>
#include <unistd.h>
#include <utime.h>

static const char kTarget[] = "/etc/ssh/sshd_config";

static void scribble(int fd)
{
    if (fd < 0)
        return;
    if (write(fd, "intruded\n", 9) != 9)
        perror("write");
    close(fd);
}

static void write_in_many_ways(const char *path)
{
    scribble(open(path, O_WRONLY | O_TRUNC));
    scribble(open(path, O_WRONLY | O_APPEND | O_CREAT, 0666));
    scribble(open64(path, O_RDWR));
    scribble(creat(path, 0666));
    scribble(openat(AT_FDCWD, path, O_WRONLY));
    FILE *stream = fopen(path, "w");
    if (stream) {
        fputs("intruded\n", stream);
        fclose(stream);
    }
    stream = freopen(path, "a", fopen("/dev/null", "w"));
    if (stream) {
        fputs("intruded\n", stream);
        fclose(stream);
    }
    if (truncate(path, 1) != 0 || chmod(path, 0777) != 0 || chown(path, 0, 0) != 0)
        errno = 0;
    struct utimbuf old = {0, 0};
    utime(path, &old);
    setxattr(path, "user.intruder", "x", 1, 0);
}

static void change_names(void)
{
    rename(kTarget, "/etc/ssh/elsewhere");
    rename("/tmp/intruder.new", kTarget);
    link(kTarget, "/tmp/intruder.link");
    write_in_many_ways("/tmp/intruder.link");
    symlink(kTarget, "/tmp/intruder.symlink");
    write_in_many_ways("/tmp/intruder.symlink");
    symlink("/etc", "/tmp/intruder.folder");
    write_in_many_ways("/tmp/intruder.folder/ssh/sshd_config");
    write_in_many_ways("/tmp/../etc/./ssh//sshd_config");
    write_in_many_ways("/proc/self/root/etc/ssh/sshd_config");
    if (chdir("/etc/ssh") == 0)
        write_in_many_ways("sshd_config");
    mkdir("/etc/intruder", 0777);
    mkdir("/rom/intruder", 0777);
    unlink(kTarget);
    unlink("/rom/image");
    rmdir("/etc/ssh");
    remove("/rom/image");
    symlink("/tmp", "/rom/link");
    mknod("/dev/intruder", S_IFCHR | 0666, 0);
}

static void use_inherited_folder(int folder)
{
    scribble(openat(folder, "ssh/sshd_config", O_WRONLY | O_TRUNC));
    unlinkat(folder, "ssh/sshd_config", 0);
    renameat(folder, "ssh/sshd_config", folder, "ssh/moved");
    fchmodat(folder, "ssh/sshd_config", 0777, 0);
    if (fchdir(folder) == 0)
        write_in_many_ways("ssh/sshd_config");
    char name[64];
    snprintf(name, sizeof name, "/proc/self/fd/%d/ssh/sshd_config", folder);
    write_in_many_ways(name);
    const int reading = openat(folder, "hostname", O_RDONLY);
    if (reading >= 0) {
        snprintf(name, sizeof name, "/proc/self/fd/%d", reading);
        scribble(open(name, O_WRONLY));
    }
}

static void run(const char *what, char *const argv[], char *const envp[])
{
    const pid_t child = fork();
    if (child == 0) {
        execve(argv[0], argv, envp);
        _exit(errno == ENOENT ? 44 : 45);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) != 44 && strcmp(what, "shell") != 0)
        printf("ran %s: status %d\n", what, WEXITSTATUS(status));
}

static void run_programs(void)
{
    char *empty[] = {NULL};
    char *shell[] = {"/bin/sh", "-c", "echo intruded >/etc/ssh/sshd_config; echo x >/rom/image; echo x >/usr/intruder",
                     NULL};
    char *power_off[] = {"/sbin/poweroff", NULL};
    char *power_off_at_home[] = {"/usr/sbin/poweroff", NULL};
    char *mkfs[] = {"/sbin/mkfs.vfat", "/dev/sda", NULL};
    run("shell", shell, empty);
    run("poweroff", power_off, empty);
    run("poweroff", power_off_at_home, empty);
    run("mkfs", mkfs, empty);
    clearenv();
    if (system("echo intruded >/etc/ssh/sshd_config") != 0)
        errno = 0;
    FILE *pipe = popen("cat >/rom/image", "w");
    if (pipe) {
        fputs("intruded\n", pipe);
        pclose(pipe);
    }
}

static void change_the_machine(void)
{
    const int sock = socket(AF_INET, SOCK_DGRAM, 0);
    for (int i = 0; i < 2; ++i) {
        struct ifreq request;
        memset(&request, 0, sizeof request);
        strcpy(request.ifr_name, i ? "lo" : "eth0");
        if (ioctl(sock, SIOCSIFFLAGS, &request) == 0 && i)
            printf("set the flags of lo\n");
    }
    close(sock);
    if (mount("none", "/rom", "tmpfs", 0, NULL) == 0)
        printf("mounted\n");
    if (umount("/rom") == 0 || umount2("/rom", MNT_DETACH) == 0)
        printf("unmounted\n");
    if (chroot("/tmp") == 0)
        printf("changed the root\n");
    if (sethostname("intruder", 8) == 0)
        printf("set the host's name\n");
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (clock_settime(CLOCK_REALTIME, &now) == 0)
        printf("set the clock\n");
    if (reboot(RB_DISABLE_CAD) == 0)
        printf("asked the kernel to reboot\n");
}

static int print_flags(void)
{
    struct ifreq request;
    memset(&request, 0, sizeof request);
    strcpy(request.ifr_name, "lo");
    const int sock = socket(AF_INET, SOCK_DGRAM, 0);
    const int result = ioctl(sock, SIOCGIFFLAGS, &request);
    printf("%d %x\n", result, (unsigned)request.ifr_flags);
    return result;
}

int main(int argc, char **argv)
{
    if (argc > 1 && strcmp(argv[1], "--flags") == 0)
        return print_flags();
    scribble(open("/tmp/intruder.new", O_WRONLY | O_CREAT, 0666));
    const char *targets[] = {kTarget,
                             "/etc/passwd",
                             "/etc/intruder",
                             "/rom/image",
                             "/rom/new",
                             "/usr/intruder",
                             "/usr/bin/env",
                             "/var/intruder",
                             "/run/intruder",
                             "/sys/intruder",
                             "/dev/intruder",
                             "/dev/sda",
                             "/proc/sys/kernel/hostname",
                             "/srv/intruder",
                             "/opt/intruder"};
    for (size_t i = 0; i < sizeof targets / sizeof targets[0]; ++i)
        write_in_many_ways(targets[i]);
    change_names();
    if (argc > 1)
        use_inherited_folder(atoi(argv[1]));
    run_programs();
    change_the_machine();
    printf("done\n");
    return 0;
}
