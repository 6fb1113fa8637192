#include "cli/fence_root.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "cli/mounts.h"
#include "page/rules.h"

namespace vboard {

namespace fs = std::filesystem;

namespace {

constexpr const char *kBuildingPlace = "/tmp";

// A read-only mount does not protect what is behind a device node. These are harmless.
constexpr const char *kDevices[] = {"/dev/null", "/dev/zero", "/dev/full", "/dev/random", "/dev/urandom", "/dev/tty"};
constexpr struct {
    const char *path;
    const char *target;
} kDeviceLinks[] = {
    {"/dev/fd", "/proc/self/fd"},       {"/dev/stdin", "/proc/self/fd/0"}, {"/dev/stdout", "/proc/self/fd/1"},
    {"/dev/stderr", "/proc/self/fd/2"}, {"/dev/ptmx", "pts/ptmx"},
};

bool is_top_folder(const std::string &path)
{
    return path.size() > 1 && path.rfind('/') == 0;
}

// The folders at the root that show only the board's files. The kernel alone fills a folder like /proc.
std::vector<std::string> folders_of_board(const FencePlan &plan)
{
    std::vector<std::string> folders;
    if (plan.root.empty())
        return folders;
    for (const PathRule &rule : kPathRules) {
        const std::string folder = rule.prefix;
        const bool is_needed = std::any_of(plan.needed.begin(), plan.needed.end(),
                                           [&](const std::string &path) { return is_below(path, folder); });
        if (rule.policy == Policy::kBoard && is_top_folder(folder) && folder != "/proc" && !is_needed &&
            fs::is_directory(plan.root + folder))
            folders.push_back(folder);
    }
    return folders;
}

// The files of the machine inside the board's folders, such as the loader's cache.
std::vector<std::string> files_of_machine(const std::vector<std::string> &folders)
{
    std::vector<std::string> files;
    for (const PathRule &rule : kPathRules) {
        const auto is_above = [&](const std::string &folder) { return is_below(rule.prefix, folder); };
        if (rule.policy == Policy::kHost && !is_below(rule.prefix, "/dev") && fs::exists(rule.prefix) &&
            std::any_of(folders.begin(), folders.end(), is_above))
            files.emplace_back(rule.prefix);
    }
    return files;
}

std::vector<Place> copies_for_board(const std::string &root, const std::vector<std::string> &folders)
{
    std::vector<Place> places;
    for (const std::string &folder : folders) {
        places.push_back({folder, copy_of(root + folder)});
        check(places.back().copy.get(), "open_tree " + root + folder);
    }
    return places;
}

// What the machine's root holds: folders and files as copies, and links.
struct Root {
    std::vector<Place> places;
    std::vector<std::pair<std::string, std::string>> links;
};

Root root_without(const std::vector<std::string> &folders)
{
    Root root;
    for (const auto &entry : fs::directory_iterator("/")) {
        const std::string path = entry.path();
        std::error_code unreadable;
        if (std::find(folders.begin(), folders.end(), path) != folders.end())
            continue;
        if (entry.is_symlink(unreadable))
            root.links.emplace_back(fs::read_symlink(path, unreadable), path);
        else if (UniqueFd copy = copy_of(path))
            root.places.push_back({path, std::move(copy)});
    }
    return root;
}

// Makes the name on which a copy is shown, unless the board has it.
void make_name(const std::string &path, const UniqueFd &copy)
{
    struct stat info;
    check(fstat(copy.get(), &info), path);
    if (S_ISDIR(info.st_mode))
        mkdir(path.c_str(), 0755);
    else
        mknod(path.c_str(), S_IFREG | 0644, 0);
}

void enter(const Root &machine, const std::vector<Place> &board)
{
    check(mount("vboard", kBuildingPlace, "tmpfs", MS_NOSUID | MS_NODEV, "mode=755"), "mount the root");
    check(chdir(kBuildingPlace), kBuildingPlace);
    for (const auto &[target, path] : machine.links)
        check(symlink(target.c_str(), path.c_str() + 1), path);
    for (const std::vector<Place> *places : {&machine.places, &board})
        for (const Place &place : *places) {
            const std::string name = place.path.substr(1);
            make_name(name, place.copy);
            put(place.copy, name);
        }
    // The old root comes to lie on the new one, and is taken off.
    check(syscall(SYS_pivot_root, ".", "."), "pivot_root");
    check(umount2(".", MNT_DETACH), "umount the old root");
    check(chdir("/"), "/");
}

void arrange_devices(const std::vector<Place> &devices)
{
    for (const Place &device : devices) {
        make_name(device.path, device.copy);
        put(device.copy, device.path);
    }
    for (const auto &link : kDeviceLinks)
        static_cast<void>(!symlink(link.target, link.path)); // the board may have it already
    mkdir("/dev/shm", 01777);
    mkdir("/dev/pts", 0755);
    check(mount("vboard", "/dev/pts", "devpts", MS_NOSUID | MS_NOEXEC, "newinstance,ptmxmode=0666,mode=0620"),
          "mount /dev/pts");
}

// A name that the board has made something else is not shown.
void show_files(const std::vector<Place> &files)
{
    for (const Place &file : files) {
        make_name(file.path, file.copy);
        if (fs::is_directory(fs::symlink_status(file.path)) == fs::is_directory(fs::status(file.path)))
            static_cast<void>(move_mount(file.copy.get(), "", AT_FDCWD, file.path.c_str(), MOVE_MOUNT_F_EMPTY_PATH));
    }
}

} // namespace

void replace_root(const FencePlan &plan)
{
    std::error_code ignored;
    const std::vector<std::string> folders = folders_of_board(plan);
    const std::vector<Place> writable = copies_of(plan.writable);
    const std::vector<Place> board = copies_for_board(plan.root, folders);
    const std::vector<Place> devices = copies_of({std::begin(kDevices), std::end(kDevices)});
    make_read_only(AT_FDCWD, "/", AT_RECURSIVE);
    const std::vector<Place> files = copies_of(files_of_machine(folders));
    enter(root_without(folders), board);
    arrange_devices(devices);
    show_files(files);
    for (const Place &place : writable) {
        fs::create_directories(place.path, ignored);
        put(place.copy, place.path);
    }
    make_read_only(AT_FDCWD, "/", 0);
}

} // namespace vboard
