#include "cli/board_directory.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <system_error>

#include "daemon/board_file.h"
#include "daemon/text_file.h"

namespace vboard {

namespace fs = std::filesystem;
using ddal::core::UniqueFd;

namespace {

constexpr const char *kFolder = "/tmp";
constexpr const char *kMemory = "/dev/shm";
constexpr uint64_t kRoom = 256 << 20; // bytes, for logs at their limits and what programs write
constexpr int kLongestEnd = 2000;     // ms of a daemon whose programs have gone
constexpr const char *kNameStart = "vboard-";
constexpr const char *kOwner = ".vboard/owner";

fs::path description_of(const std::string &type)
{
    return descriptions() / ((type.empty() ? kDefaultType : type) + ".conf");
}

// Whether a process has the board in its environment: a program that outlived its `vboard run`.
bool has_programs(const fs::path &board)
{
    const std::string entry = "VBOARD_PAGE=" + (board / ".vboard/page").string() + '\0';
    std::error_code ignored;
    for (const auto &process : fs::directory_iterator("/proc", ignored)) {
        if (read_text(process.path() / "environ").find(entry) != std::string::npos)
            return true;
    }
    return false;
}

bool is_ours(const fs::path &folder)
{
    struct stat info;
    return lstat(folder.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == geteuid();
}

// A board has about 400 files and folders. Memory is the fastest place to make and remove them.
const char *folder_for_temporary_board()
{
    struct statfs info;
    const bool is_fit = statfs(kMemory, &info) == 0 && info.f_type == TMPFS_MAGIC &&
                        !(static_cast<unsigned long>(info.f_flags) & ST_NOEXEC) &&
                        uint64_t{info.f_bavail} * static_cast<uint64_t>(info.f_bsize) >= kRoom &&
                        access(kMemory, W_OK) == 0;
    return is_fit ? kMemory : kFolder;
}

// Removes temporary boards whose `vboard run` has gone without doing it.
void remove_abandoned(const char *folder)
{
    std::error_code ignored;
    for (const auto &entry : fs::directory_iterator(folder, ignored)) {
        if (!entry.path().filename().string().starts_with(kNameStart) || !is_ours(entry.path()))
            continue;
        const UniqueFd owner{open((entry.path() / kOwner).c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW)};
        if (owner && flock(owner.get(), LOCK_EX | LOCK_NB) == 0 && !has_programs(entry.path()))
            fs::remove_all(entry.path(), ignored);
    }
}

// The daemon ends after its last program and removes its sockets then; two that remove the same folders stop each
// other.
void wait_for_daemon(const fs::path &board)
{
    const UniqueFd life{open((board / ".vboard/life").c_str(), O_RDWR | O_CLOEXEC)};
    for (int i = 0; i < kLongestEnd && life && flock(life.get(), LOCK_EX | LOCK_NB) != 0; ++i)
        usleep(1000);
}

} // namespace

BoardDirectory::BoardDirectory(const RunOptions &options) : BoardDirectory()
{
    // What is thrown from here on meets the destructor.
    if (options.board.empty()) {
        remove_abandoned(kFolder);
        remove_abandoned(kMemory);
        make(options);
        return;
    }
    path_ = fs::absolute(options.board);
    if (fs::exists(path_ / "board.conf")) {
        open_existing(options);
        return;
    }
    remove_ = !fs::exists(path_);
    create_board(path_, description_of(options.type));
    remove_ = false;
}

BoardDirectory::~BoardDirectory()
{
    if (!remove_)
        return;
    wait_for_daemon(path_);
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

void BoardDirectory::open_existing(const RunOptions &options)
{
    if (options.type.empty())
        return;
    const BoardFile here = read_board_file(path_ / "board.conf");
    const BoardFile wanted = read_board_file(description_of(options.type));
    if (here.number != wanted.number || here.name != wanted.name)
        throw ClientError("the board in " + path_.string() + " is of another type: " + here.name +
                          "; --type is for a new board");
}

void BoardDirectory::make(const RunOptions &options)
{
    std::string name = std::string(options.keep ? kFolder : folder_for_temporary_board()) + "/" + kNameStart + "XXXXXX";
    if (!mkdtemp(name.data()))
        throw std::system_error(errno, std::generic_category(), name);
    path_ = name;
    remove_ = true;
    create_board(path_, description_of(options.type));
    if (options.keep)
        remove_ = false;
    else
        own();
}

// The name is there only once the lock is.
void BoardDirectory::own()
{
    const fs::path fresh = path_ / (std::string(kOwner) + ".new");
    owner_ = UniqueFd{open(fresh.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)};
    if (!owner_ || flock(owner_.get(), LOCK_EX) != 0)
        throw std::system_error(errno, std::generic_category(), fresh);
    fs::rename(fresh, path_ / kOwner);
}

} // namespace vboard
