// First and only process tree of the rig's machine: brings the board up as far as the library needs it, runs the checks
// and powers off. Its arguments come from the kernel's command line.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "disk.h"
#include "interfaces.h"

namespace {

const std::string kBoardModule = "/rig/ddal_board.ko";

void stop(const char *what)
{
    printf("rig: cannot %s: %s\n", what, strerror(errno));
    fflush(stdout);
    reboot(RB_POWER_OFF);
    for (;;)
        pause();
}

void mount_or_stop(const char *type, const char *where)
{
    mkdir(where, 0755);
    if (mount(type, where, type, 0, nullptr) != 0 && errno != EBUSY)
        stop(where);
}

void load_module(const std::string &path)
{
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0 || (syscall(SYS_finit_module, fd, "", 0) != 0 && errno != EEXIST))
        stop(path.c_str());
    close(fd);
}

void load_kernel_modules()
{
    std::ifstream list("/rig/modules");
    for (std::string path; std::getline(list, path);)
        load_module(path);
}

// Gives the board's pulse the device name that the library uses.
void name_pulse_device()
{
    for (int n = 0; n < 8; n++) {
        const std::string pps = "pps" + std::to_string(n);
        std::ifstream file("/sys/class/pps/" + pps + "/name");
        std::string name;
        if (!std::getline(file, name) || name != "fpga-pps")
            continue;
        mkdir("/dev/pps", 0755);
        if (symlink(("/dev/" + pps).c_str(), "/dev/pps/fpga-pps") == 0)
            return;
    }
    stop("find the pulse per second");
}

void run(const char *program, const std::string &cases)
{
    const char *name = strrchr(program, '/') + 1;
    printf("rig: start %s %s\n", name, cases.c_str());
    fflush(stdout);
    const pid_t pid = fork();
    if (pid == 0) {
        const std::string filter = "--gtest_filter=" + cases;
        dup2(STDOUT_FILENO, STDERR_FILENO);
        execl(program, program, filter.c_str(), "--gtest_color=no", static_cast<char *>(nullptr));
        _exit(127);
    }
    int status = 0;
    while (pid > 0 && waitpid(pid, &status, 0) < 0 && errno == EINTR)
        continue;
    printf("\nrig: end %s %d\n", name, pid > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1);
}

void bring_up_board()
{
    load_module(kBoardModule);
    name_pulse_device();
    if (!rig::make_interfaces())
        stop("make the network interfaces");
    if (!rig::make_disk())
        stop("make the flash disk");
}

} // namespace

int main(int argc, char **argv)
{
    setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
    mount_or_stop("proc", "/proc");
    mount_or_stop("sysfs", "/sys");
    mount_or_stop("devtmpfs", "/dev");
    mount_or_stop("tmpfs", "/tmp");
    puts("rig: up");

    const std::string boot = argc > 1 ? argv[1] : "";
    load_kernel_modules();
    if (boot == "board") {
        run("/rig/loading_checks", "Loading.AbortsWithoutTheFrameDevice");
        bring_up_board();
        run("/rig/board_checks", "*");
    } else if (boot == "wrong-frequency") {
        load_module(kBoardModule);
        run("/rig/loading_checks", "Loading.AbortsAtAnotherFrequency");
    } else {
        errno = EINVAL;
        stop("make sense of the kernel's command line");
    }
    puts("rig: down");
    fflush(stdout);
    sync();
    reboot(RB_POWER_OFF);
    return 1;
}
