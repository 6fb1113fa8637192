#include "board_state.h"

#include <algorithm>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <regex>
#include <sstream>
#include <sys/syscall.h>
#include <unistd.h>

#include "client/client.h"
#include "dsp/cma_driver.h"
#include "logic/fpga_driver.h"
#include "platform/emtimer_driver.h"

namespace campaign {

namespace {

constexpr off_t kLarge = 16 << 20;

// Driver requests that change something.
constexpr unsigned long kSetting[] = {ddal::logic::kFpgaRegWrite,      ddal::logic::kFpgaRegMaskedWrite,
                                      ddal::platform::kEmtimerConfig,  ddal::platform::kEmtimerCreate,
                                      ddal::platform::kEmtimerSettime, ddal::platform::kEmtimerDestroy,
                                      ddal::dsp::kCmaInitialise,       ddal::dsp::kCmaAllocate};

bool same_times(const struct stat &a, const struct stat &b)
{
    return a.st_ino == b.st_ino && a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

std::string how_it_is(const struct stat &status, const std::string &content)
{
    std::ostringstream text;
    text << std::oct << status.st_mode << std::dec << ' ' << status.st_uid << ':' << status.st_gid << ' ' << content;
    return text.str();
}

// Reads with direct system calls: the board's preload library would lead the read to the model behind the file.
std::string raw_content(const std::string &path)
{
    std::string content;
    char buffer[65536];
    const long fd = syscall(SYS_openat, AT_FDCWD, path.c_str(), O_RDONLY | O_CLOEXEC);
    for (long n; fd >= 0 && (n = syscall(SYS_read, fd, buffer, sizeof buffer)) > 0;)
        content.append(buffer, static_cast<size_t>(n));
    syscall(SYS_close, fd);
    return content;
}

// The name of a node is a socket. Its text lies in the file that the board keeps for it.
std::string place_of(const std::string &root, const std::string &path)
{
    std::string name = path.substr(1);
    std::replace(name.begin(), name.end(), '/', vboard::kNodeSlash);
    const std::string of_node = root.substr(0, root.rfind('/')) + "/.vboard/" + vboard::kNodeFiles + "/" + name;
    struct stat status {};
    return stat(of_node.c_str(), &status) == 0 && S_ISREG(status.st_mode) ? of_node : root + path;
}

// Writes in place, because the board knows its nodes by their inodes.
void put_raw(const std::string &path, const std::string &content)
{
    const long fd = syscall(SYS_openat, AT_FDCWD, path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    syscall(SYS_write, fd, content.data(), content.size());
    syscall(SYS_close, fd);
}

void add_folder(const std::string &root, const std::string &below, std::map<std::string, struct stat> &found);

void add_entry(const std::string &root, const std::string &path, std::map<std::string, struct stat> &found)
{
    struct stat status {};
    if (syscall(SYS_newfstatat, AT_FDCWD, place_of(root, path).c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return;
    // The frame driver's page changes by itself, stubs of programs note that they ran, sockets are the daemon's.
    if (path == "/dev/fpga_frame" || path == "/run/stub/log" || S_ISSOCK(status.st_mode) ||
        (S_ISREG(status.st_mode) && status.st_size >= kLarge))
        return;
    found[path] = status;
    if (S_ISDIR(status.st_mode))
        add_folder(root, path, found);
}

void add_folder(const std::string &root, const std::string &below, std::map<std::string, struct stat> &found)
{
    const long folder = syscall(SYS_openat, AT_FDCWD, (root + below).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    alignas(dirent64) char entries[8192];
    for (long length; folder >= 0 && (length = syscall(SYS_getdents64, folder, entries, sizeof entries)) > 0;) {
        for (long at = 0; at < length;) {
            const auto *const entry = reinterpret_cast<const dirent64 *>(entries + at);
            const std::string name = entry->d_name;
            if (name != "." && name != "..")
                add_entry(root, below + "/" + name, found);
            at += entry->d_reclen;
        }
    }
    syscall(SYS_close, folder);
}

// Returns the value of a word in a line of the trace, without quotes.
std::string word(const std::string &line, const std::string &name)
{
    const std::string start = "\"" + name + "\":";
    size_t at = line.find(start);
    if (at == std::string::npos)
        return {};
    at += start.size();
    if (line[at] == '"')
        return line.substr(at + 1, line.find('"', at + 1) - at - 1);
    return line.substr(at, line.find_first_of(",}", at) - at);
}

} // namespace

Files::Files(std::string root) : root_(std::move(root))
{
    for (const auto &[path, status] : now())
        start_[path] = {status, content(path, status)};
}

std::map<std::string, struct stat> Files::now() const
{
    std::map<std::string, struct stat> found;
    add_folder(root_, "", found);
    return found;
}

std::string Files::content(const std::string &path, const struct stat &status) const
{
    if (S_ISLNK(status.st_mode)) {
        char target[4096];
        const ssize_t n = readlink((root_ + path).c_str(), target, sizeof target);
        return n < 0 ? "" : std::string(target, static_cast<size_t>(n));
    }
    if (!S_ISREG(status.st_mode))
        return {};
    return raw_content(place_of(root_, path));
}

const std::map<std::string, std::string> &Files::changes()
{
    std::map<std::string, std::string> &changed = changed_;
    changed.clear();
    const auto found = now();
    for (const auto &[path, status] : found) {
        const auto old = start_.find(path);
        if (old != start_.end() && same_times(status, old->second.status))
            continue;
        const std::string is = how_it_is(status, content(path, status));
        if (old == start_.end() || is != how_it_is(old->second.status, old->second.content))
            changed[path] = is;
        else
            old->second.status = status; // touched, but unchanged
    }
    for (const auto &[path, entry] : start_)
        if (found.count(path) == 0)
            changed[path] = "gone";
    return changed;
}

void Files::write(const std::string &path, const Entry &entry) const
{
    const std::string full = place_of(root_, path);
    struct stat now {};
    if (lstat(full.c_str(), &now) == 0 && (now.st_mode & S_IFMT) != (entry.status.st_mode & S_IFMT))
        remove(full.c_str());
    if (S_ISDIR(entry.status.st_mode)) {
        mkdir(full.c_str(), 0700);
    } else if (S_ISLNK(entry.status.st_mode)) {
        unlink(full.c_str());
        (void)!symlink(entry.content.c_str(), full.c_str());
        return;
    } else {
        put_raw(full, entry.content);
    }
    (void)!chown(full.c_str(), entry.status.st_uid, entry.status.st_gid);
    chmod(full.c_str(), entry.status.st_mode & 07777);
}

void Files::restore()
{
    for (auto each = changed_.rbegin(); each != changed_.rend(); ++each) // a folder's content goes before the folder
        if (start_.count(each->first) == 0)
            remove((root_ + each->first).c_str());
    for (const auto &[path, is] : changed_) {
        const auto old = start_.find(path);
        if (old == start_.end())
            continue;
        write(path, old->second);
        lstat(place_of(root_, path).c_str(), &old->second.status);
    }
}

SwitchTables::SwitchTables()
{
    try {
        vboard::Client().run("switch keep");
        there_ = true;
    } catch (const vboard::ClientError &) { // the board lacks a switch
    }
}

std::string SwitchTables::changes() const
{
    return there_ ? vboard::Client().run("switch changes") : "";
}

void SwitchTables::restore() const
{
    if (there_)
        vboard::Client().run("switch back");
}

std::vector<std::string> GrowingFile::take(long start)
{
    position_ = std::max(position_, start);
    std::vector<std::string> lines;
    std::ifstream in(path_, std::ios::binary);
    in.seekg(position_);
    for (std::string line; std::getline(in, line);) {
        position_ += static_cast<long>(line.size()) + 1;
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> changing_accesses(const std::vector<std::string> &trace)
{
    // Programs with an effect outside the board's files. The files show the effect of the other programs.
    static const std::regex acting(
        "/(systemctl|shutdown|mkfs\\.ext4|passwd|update_u-boot\\.sh|trbl_linux_log_store\\.sh)$");
    std::vector<std::string> changing;
    std::string last;
    for (const std::string &line : trace) {
        const std::string call = word(line, "call");
        const std::string request = word(line, "request");
        const bool changes = call == "write" || call == "pwrite" || call == "ioctl" ||
                             (call == "exec" && std::regex_search(word(line, "path"), acting));
        if (!changes || word(line, "pid") == std::to_string(getpid()) || word(line, "result")[0] == '-')
            continue;
        if (call == "ioctl" && std::count(std::begin(kSetting), std::end(kSetting), std::stoul(request)) == 0)
            continue;
        // A transfer in pieces counts as one.
        const std::string place = call + " " + word(line, "path") + " " + (call == "ioctl" ? request : "");
        if (place == last && call == "write")
            changing.back() += word(line, "data");
        else
            changing.push_back(place + word(line, "offset") + " " + word(line, "data"));
        last = place;
    }
    return changing;
}

std::vector<std::string> log_lines(const std::vector<std::string> &syslog)
{
    static const std::regex source_line("^(\\w+):\\d+- |^(\\w+\\(\\)):\\d+ "), process("PID:\\d+");
    std::vector<std::string> lines;
    for (const std::string &line : syslog) {
        std::istringstream words(line);
        std::string pid, priority, text;
        words >> pid >> priority;
        std::getline(words.ignore(1), text);
        text = std::regex_replace(std::regex_replace(text, source_line, "$1$2: "), process, "PID:N");
        lines.push_back(priority + " " + text);
    }
    return lines;
}

} // namespace campaign
