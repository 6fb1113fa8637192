#include "cli/walls.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "cli/network.h"
#include "core/unique_fd.h"

namespace vboard {

namespace fs = std::filesystem;
using ddal::core::UniqueFd;

namespace {

constexpr int kNamespaces = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWIPC | CLONE_NEWNET | CLONE_NEWUTS;

// Root keeps what the files, accounts and processes of a board take. Without CAP_SYS_ADMIN it cannot mount, without
// CAP_DAC_READ_SEARCH not open files by handle through a writable mount, without CAP_MKNOD not reach a disk.
constexpr unsigned kKept[] = {CAP_CHOWN,  CAP_DAC_OVERRIDE, CAP_FOWNER,           CAP_FSETID,   CAP_KILL,
                              CAP_SETGID, CAP_SETUID,       CAP_NET_BIND_SERVICE, CAP_IPC_LOCK, CAP_SYS_NICE};
constexpr unsigned kKeptForNetwork[] = {CAP_NET_ADMIN, CAP_NET_RAW};

constexpr const char *kDevices[] = {"/dev/null", "/dev/zero", "/dev/full", "/dev/random", "/dev/urandom", "/dev/tty"};
constexpr struct {
    const char *path;
    const char *target;
} kDeviceLinks[] = {
    {"/dev/fd", "/proc/self/fd"},       {"/dev/stdin", "/proc/self/fd/0"}, {"/dev/stdout", "/proc/self/fd/1"},
    {"/dev/stderr", "/proc/self/fd/2"}, {"/dev/ptmx", "pts/ptmx"},
};

// Parts of /proc that change the machine. Root of the machine may write there in every namespace.
constexpr const char *kMachineInProc[] = {"/proc/sys", "/proc/sysrq-trigger", "/proc/irq",  "/proc/bus",
                                          "/proc/fs",  "/proc/acpi",          "/proc/scsi", "/proc/mtrr"};

void check(long result, const std::string &what)
{
    if (result < 0)
        throw FenceError(what + ": " + std::strerror(errno));
}

UniqueFd copy_of(const std::string &place)
{
    return UniqueFd{open_tree(AT_FDCWD, place.c_str(), OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_RECURSIVE)};
}

void put(const UniqueFd &copy, const std::string &place)
{
    check(move_mount(copy.get(), "", AT_FDCWD, place.c_str(), MOVE_MOUNT_F_EMPTY_PATH), "move_mount " + place);
}

void make_read_only(int directory, const char *path, unsigned flags)
{
    mount_attr attributes{};
    attributes.attr_set = MOUNT_ATTR_RDONLY;
    check(mount_setattr(directory, path, AT_RECURSIVE | flags, &attributes, sizeof attributes), "mount_setattr");
}

bool is_below(const std::string &path, const std::string &folder)
{
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

struct Place {
    std::string path;
    UniqueFd copy;
};

std::vector<Place> copies_of(const std::vector<std::string> &paths)
{
    std::vector<Place> places;
    for (const std::string &path : paths) {
        places.push_back({path, copy_of(path)});
        check(places.back().copy.get(), "open_tree " + path);
    }
    return places;
}

// A read-only mount does not protect what is behind a device node.
void replace_devices()
{
    const std::vector<Place> devices = copies_of({std::begin(kDevices), std::end(kDevices)});
    check(mount("vboard", "/dev", "tmpfs", MS_NOSUID | MS_NOEXEC, "mode=755"), "mount /dev");
    for (const Place &device : devices) {
        static_cast<void>(UniqueFd{open(device.path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666)});
        put(device.copy, device.path);
    }
    for (const auto &link : kDeviceLinks)
        check(symlink(link.target, link.path), link.path);
    check(mkdir("/dev/shm", 0777) | chmod("/dev/shm", 01777), "/dev/shm");
    check(mkdir("/dev/pts", 0755), "/dev/pts");
    check(mount("vboard", "/dev/pts", "devpts", MS_NOSUID | MS_NOEXEC, "newinstance,ptmxmode=0666,mode=0620"),
          "mount /dev/pts");
}

// A program can connect to a socket on a read-only mount.
void hide_sockets(const FencePlan &plan)
{
    for (const std::vector<std::string> &paths : {plan.needed, plan.writable})
        for (const std::string &path : paths)
            if (is_below(path, "/run"))
                return;
    if (fs::is_directory("/run"))
        check(mount("vboard", "/run", "tmpfs", MS_NOSUID | MS_NODEV, "mode=755"), "mount /run");
}

void write_once(const char *path, const std::string &text)
{
    const UniqueFd file{open(path, O_WRONLY | O_CLOEXEC)};
    check(file.get(), path);
    check(write(file.get(), text.data(), text.size()), path);
}

// Replaces a descriptor by one of the same file in this mount namespace.
void reopen(int number)
{
    struct stat before;
    struct stat after;
    const int flags = fcntl(number, F_GETFL);
    if (flags < 0 || fstat(number, &before) != 0)
        return;
    const bool is_folder = S_ISDIR(before.st_mode);
    const bool is_read = S_ISREG(before.st_mode) && (flags & O_ACCMODE) == O_RDONLY && before.st_nlink > 0;
    if (!is_folder && !is_read)
        return; // the user of this machine has opened it for writing
    std::error_code gone;
    const fs::path path = fs::read_symlink("/proc/self/fd/" + std::to_string(number), gone);
    const UniqueFd fresh{gone ? -1 : open(path.c_str(), flags | O_CLOEXEC)};
    if (!fresh || fstat(fresh.get(), &after) != 0 || before.st_ino != after.st_ino || before.st_dev != after.st_dev) {
        if (number > STDERR_FILENO)
            close(number);
        return;
    }
    if (is_read)
        lseek(fresh.get(), lseek(number, 0, SEEK_CUR), SEEK_SET);
    dup3(fresh.get(), number, fcntl(number, F_GETFD) & FD_CLOEXEC ? O_CLOEXEC : 0);
}

} // namespace

void enter_namespaces(bool real_net)
{
    if (unshare(kNamespaces) != 0) {
        const std::string user = std::to_string(getuid());
        const std::string group = std::to_string(getgid());
        // Root without the privilege is in a container. A user namespace would take its other accounts away.
        check(geteuid() == 0 ? -1 : unshare(CLONE_NEWUSER | kNamespaces), "unshare");
        write_once("/proc/self/setgroups", "deny");
        write_once("/proc/self/uid_map", (real_net ? "0" : user) + " " + user + " 1");
        write_once("/proc/self/gid_map", (real_net ? "0" : group) + " " + group + " 1");
    }
    check(bring_up_loopback() ? 0 : -1, "lo");
}

void arrange_files(const FencePlan &plan)
{
    check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "mount /");
    const std::vector<Place> writable = copies_of(plan.writable);
    make_read_only(AT_FDCWD, "/", 0);
    replace_devices();
    hide_sockets(plan);
    for (const Place &place : writable) {
        std::error_code there;
        fs::create_directories(place.path, there);
        put(place.copy, place.path);
    }
}

void arrange_processes()
{
    check(mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr), "mount /proc");
    for (const char *path : kMachineInProc) {
        const UniqueFd copy = copy_of(path);
        if (!copy)
            continue; // this kernel was built without it
        make_read_only(copy.get(), "", AT_EMPTY_PATH);
        put(copy, path);
    }
}

void drop_privileges(bool real_net)
{
    uint64_t kept = 0;
    for (const unsigned number : kKept)
        kept |= uint64_t{1} << number;
    for (const unsigned number : kKeptForNetwork)
        kept |= uint64_t{real_net} << number;
    for (unsigned number = 0; prctl(PR_CAPBSET_READ, number) >= 0; ++number)
        if (!(kept >> number & 1))
            check(prctl(PR_CAPBSET_DROP, number), "PR_CAPBSET_DROP");
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct words[2]{};
    check(syscall(SYS_capget, &header, words), "capget");
    for (unsigned i = 0; i < 2; ++i) {
        words[i].permitted &= static_cast<uint32_t>(kept >> 32 * i);
        words[i].effective = words[i].permitted;
        words[i].inheritable = 0;
    }
    check(syscall(SYS_capset, &header, words), "capset");
    check(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), "PR_SET_NO_NEW_PRIVS");
}

void reopen_inherited()
{
    std::vector<int> numbers;
    for (const auto &entry : fs::directory_iterator("/proc/self/fd"))
        numbers.push_back(std::stoi(entry.path().filename()));
    for (const int number : numbers)
        reopen(number);
}

} // namespace vboard
