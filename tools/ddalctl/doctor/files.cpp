#include "ddalctl/doctor/files.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "core/unique_fd.h"
#include "ddalctl/doctor/content.h"

namespace ddalctl::doctor {

using ddal::core::UniqueFd;

namespace {

constexpr size_t kMostBytes = 65536;

std::string folder_of(const std::string &path)
{
    const size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool is_folder(const std::string &path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// Returns the names in a folder that match a pattern, sorted.
std::vector<std::string> names_in(const std::string &folder, const std::string &pattern)
{
    const std::unique_ptr<DIR, int (*)(DIR *)> directory(opendir(folder.c_str()), closedir);
    std::vector<std::string> names;
    while (const dirent *entry = directory ? readdir(directory.get()) : nullptr) {
        if (entry->d_name[0] != '.' && fnmatch(pattern.c_str(), entry->d_name, FNM_PATHNAME) == 0)
            names.emplace_back(entry->d_name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Returns the files that a path with "*" in one of its names stands for.
std::vector<std::string> files_of(const std::string &path)
{
    const size_t star = path.find('*');
    if (star == std::string::npos)
        return {path};
    const size_t begin = path.rfind('/', star);
    const size_t end = std::min(path.find('/', star), path.size());
    const std::string folder = path.substr(0, begin);
    std::vector<std::string> files;
    for (const std::string &name : names_in(folder, path.substr(begin + 1, end - begin - 1)))
        files.push_back(folder + "/" + name + path.substr(end));
    return files;
}

Problem missing(const std::string &path)
{
    const int error = errno;
    struct stat status = {};
    if (error == ENOENT && lstat(path.c_str(), &status) == 0)
        return {path, kMissing, "the link leads to a file that does not exist"};
    if (error != ENOENT && error != ENOTDIR)
        return {path, kMissing, strerror(error)};
    std::string nearest = folder_of(path);
    if (is_folder(nearest))
        return {path, kMissing, ""};
    while (!is_folder(folder_of(nearest)) && nearest != "/")
        nearest = folder_of(nearest);
    return {path, kMissing, "as is its folder " + nearest};
}

std::string letters_of(int access)
{
    return std::string(access & R_OK ? "r" : "") + (access & W_OK ? "w" : "") + (access & X_OK ? "x" : "");
}

// The kinds of access that the mode refuses to the owner. The system lets root through, but an attribute without the
// bit refuses root as well, and a program without it does not start.
int refused_to_owner(const Need &need, const struct stat &status)
{
    return need.access & ~static_cast<int>(status.st_mode >> 6);
}

std::optional<Problem> mode_problem(const Need &need, const std::string &path, const struct stat &status)
{
    char mode[8];
    snprintf(mode, sizeof mode, "%04o", status.st_mode & 07777u);
    const int refused = refused_to_owner(need, status);
    if (refused != 0)
        return Problem{path, kWrongMode, std::string("its mode ") + mode + " lacks " + letters_of(refused),
                       "chmod u+" + letters_of(refused) + " " + path};
    if (access(path.c_str(), need.access) == 0)
        return std::nullopt;
    if (errno == EACCES)
        return Problem{path, kWrongMode, std::string("its mode ") + mode + " refuses this user", "run as root"};
    return Problem{path, kWrongMode, strerror(errno),
                   "mount its file system so that it allows " + letters_of(need.access)};
}

std::optional<Problem> kind_problem(const Need &need, const std::string &path, const struct stat &status)
{
    const bool folder = S_ISDIR(status.st_mode);
    if (need.kind == NeedKind::folder)
        return folder ? std::nullopt : std::optional(Problem{path, kWrongKind, "is not a folder"});
    if (folder && need.kind != NeedKind::made && need.kind != NeedKind::optional)
        return Problem{path, kWrongKind, "is a folder"};
    if (need.kind == NeedKind::program && !S_ISREG(status.st_mode))
        return Problem{path, kWrongKind, "is not a program"};
    return std::nullopt;
}

// An FPGA that is not configured reads as all ones or zeros.
std::optional<Problem> version_problem(const std::string &path)
{
    const UniqueFd fd{open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    uint32_t version = 0;
    const ssize_t n = fd ? pread(fd.get(), &version, sizeof version, 0) : -1;
    if (n != sizeof version)
        return Problem{path, kUnreadable, n < 0 ? strerror(errno) : "its version register delivers less than 4 bytes"};
    if (version != 0 && version != UINT32_MAX)
        return std::nullopt;
    return Problem{path, kWrongContent, "its version register holds all " + std::string(version ? "ones" : "zeros"),
                   "configure the FPGA"};
}

bool read_file(const std::string &path, std::string *bytes)
{
    const UniqueFd fd{open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    char part[4096];
    ssize_t n = fd ? 1 : -1;
    while (n > 0 && bytes->size() < kMostBytes) {
        n = read(fd.get(), part, sizeof part);
        bytes->append(part, static_cast<size_t>(std::max<ssize_t>(n, 0)));
    }
    return n >= 0;
}

std::optional<Problem> content_problem(const Need &need, const std::string &path)
{
    if (need.content == Content::any)
        return std::nullopt;
    if (need.content == Content::version)
        return version_problem(path);
    std::string bytes;
    if (!read_file(path, &bytes))
        return Problem{path, kUnreadable, strerror(errno)};
    const std::string flaw = flaw_of(need.content, bytes);
    return flaw.empty() ? std::nullopt : std::optional(Problem{path, kWrongContent, flaw, "correct what it holds"});
}

std::optional<Problem> examine_file(const Need &need, const std::string &path)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        Problem problem = missing(path);
        if (need.kind == NeedKind::optional || (need.kind == NeedKind::made && is_folder(folder_of(path))))
            return std::nullopt;
        return problem;
    }
    if (auto problem = kind_problem(need, path, status))
        return problem;
    if (auto problem = mode_problem(need, path, status))
        return problem;
    return content_problem(need, path);
}

} // namespace

std::vector<Problem> examine_files(const Need &need)
{
    const std::vector<std::string> files = files_of(need.path);
    if (files.empty() && need.kind != NeedKind::optional)
        return {{need.path, kMissing, ""}};
    std::vector<Problem> problems;
    for (const std::string &file : files) {
        if (auto problem = examine_file(need, file))
            problems.push_back(*problem);
    }
    return problems;
}

std::string bytes_of(const std::string &path)
{
    std::string bytes;
    return read_file(path, &bytes) ? bytes : "";
}

} // namespace ddalctl::doctor
