#include "support/resources.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <sys/wait.h>

namespace testing_board {

namespace {

// The preload library's descriptors start here.
constexpr int kLastOfProgram = 900;

template <typename T>
std::vector<T> without(const std::set<T> &a, const std::set<T> &b)
{
    std::vector<T> rest;
    std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(rest));
    return rest;
}

} // namespace

std::set<int> open_descriptors()
{
    std::set<int> open;
    for (int fd = 0; fd < kLastOfProgram; ++fd)
        if (fcntl(fd, F_GETFD) >= 0)
            open.insert(fd);
    return open;
}

std::set<int> Resources::open_descriptors()
{
    return testing_board::open_descriptors();
}

std::set<std::string> Resources::names() const
{
    std::set<std::string> found;
    for (const std::string &folder : folders_)
        for (const auto &entry : std::filesystem::directory_iterator(folder))
            found.insert(entry.path().string());
    return found;
}

Resources::Resources(std::vector<std::string> folders)
    : folders_(std::move(folders)), descriptors_(open_descriptors()), names_(names())
{
}

std::string Resources::difference() const
{
    std::string text;
    const auto now = open_descriptors();
    for (const int fd : without(now, descriptors_))
        text += "descriptor " + std::to_string(fd) + " left open; ";
    for (const int fd : without(descriptors_, now))
        text += "descriptor " + std::to_string(fd) + " closed that was not the call's; ";
    const auto names_now = names();
    for (const auto &name : without(names_now, names_))
        text += "file " + name + " left behind; ";
    int status = 0;
    if (const pid_t child = waitpid(-1, &status, WNOHANG | __WALL); child >= 0)
        text += "a child left behind; ";
    return text;
}

} // namespace testing_board
