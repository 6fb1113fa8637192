#include "cli/walls.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "cli/fence_root.h"
#include "cli/mounts.h"
#include "cli/network.h"

namespace vboard {

namespace fs = std::filesystem;

namespace {

constexpr int kNamespaces = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWIPC | CLONE_NEWNET | CLONE_NEWUTS;

// Root keeps what the files, accounts and processes of a board take. Without CAP_SYS_ADMIN it cannot mount, without
// CAP_DAC_READ_SEARCH not open files by handle through a writable mount, without CAP_MKNOD not reach a disk.
constexpr unsigned kKept[] = {CAP_CHOWN,  CAP_DAC_OVERRIDE, CAP_FOWNER,           CAP_FSETID,   CAP_KILL,
                              CAP_SETGID, CAP_SETUID,       CAP_NET_BIND_SERVICE, CAP_IPC_LOCK, CAP_SYS_NICE};
constexpr unsigned kKeptForNetwork[] = {CAP_NET_ADMIN, CAP_NET_RAW};

// Parts of /proc that change the machine. Root of the machine may write there in every namespace.
constexpr const char *kMachineInProc[] = {"/proc/sys", "/proc/sysrq-trigger", "/proc/irq",  "/proc/bus",
                                          "/proc/fs",  "/proc/acpi",          "/proc/scsi", "/proc/mtrr"};

void write_once(const char *path, const std::string &text)
{
    const UniqueFd file{open(path, O_WRONLY | O_CLOEXEC)};
    check(file.get(), path);
    check(write(file.get(), text.data(), text.size()), path);
}

// The content of a file that this mount namespace does not show.
UniqueFd content_of(int number)
{
    const UniqueFd copy{open("/tmp", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600)};
    off_t at = 0;
    while (copy && sendfile(copy.get(), number, &at, 1 << 30) > 0)
        ;
    return UniqueFd{copy ? open(("/proc/self/fd/" + std::to_string(copy.get())).c_str(), O_RDONLY | O_CLOEXEC) : -1};
}

// The same file or folder in this mount namespace.
UniqueFd opened_here(int number, const struct stat &before, int flags)
{
    struct stat after;
    std::error_code gone;
    const fs::path path = fs::read_symlink("/proc/self/fd/" + std::to_string(number), gone);
    UniqueFd fresh{gone ? -1 : open(path.c_str(), flags | O_CLOEXEC)};
    if (fresh && fstat(fresh.get(), &after) == 0 && before.st_ino == after.st_ino && before.st_dev == after.st_dev)
        return fresh;
    return S_ISREG(before.st_mode) ? content_of(number) : UniqueFd{};
}

// Replaces a descriptor by one of this mount namespace. Closes it, or leads it to /dev/null, if there is none.
void reopen(int number)
{
    struct stat before;
    const int flags = fcntl(number, F_GETFL);
    if (flags < 0 || fstat(number, &before) != 0)
        return;
    const bool is_folder = S_ISDIR(before.st_mode);
    const bool is_read = S_ISREG(before.st_mode) && (flags & O_ACCMODE) == O_RDONLY && before.st_nlink > 0;
    if (!is_folder && !is_read)
        return; // the user of this machine has opened it for writing
    UniqueFd fresh = opened_here(number, before, flags);
    if (fresh && is_read)
        lseek(fresh.get(), lseek(number, 0, SEEK_CUR), SEEK_SET);
    if (!fresh && number <= STDERR_FILENO)
        fresh = UniqueFd{open("/dev/null", O_RDONLY | O_CLOEXEC)};
    if (fresh)
        dup3(fresh.get(), number, fcntl(number, F_GETFD) & FD_CLOEXEC ? O_CLOEXEC : 0);
    else
        close(number);
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
    std::error_code gone;
    const fs::path folder = fs::current_path(gone);
    replace_root(plan);
    fs::current_path(folder, gone);
}

void arrange_processes()
{
    check(mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr), "mount /proc");
    for (const char *path : kMachineInProc) {
        const UniqueFd copy = copy_of(path);
        if (!copy)
            continue; // this kernel was built without it
        make_read_only(copy.get(), "", AT_RECURSIVE | AT_EMPTY_PATH);
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
