// A directory for one test, with access to its files.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <stdlib.h>

class TemporaryDirectory {
public:
    TemporaryDirectory()
    {
        std::string pattern = std::filesystem::temp_directory_path() / "ddal-core-XXXXXX";
        if (!mkdtemp(pattern.data()))
            throw std::runtime_error("no temporary directory");
        path_ = pattern;
    }
    TemporaryDirectory(const TemporaryDirectory &) = delete;
    TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;
    ~TemporaryDirectory() { std::filesystem::remove_all(path_); }

    std::string operator/(const std::string &name) const { return path_ / name; }

    std::string put(const std::string &name, const std::string &content) const
    {
        std::ofstream(path_ / name, std::ios::binary) << content;
        return path_ / name;
    }

    std::string get(const std::string &name) const
    {
        std::ifstream file(path_ / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::set<std::string> names() const
    {
        std::set<std::string> found;
        for (const auto &entry : std::filesystem::directory_iterator(path_))
            found.insert(entry.path().filename());
        return found;
    }

private:
    std::filesystem::path path_;
};

// Returns the number of open descriptors of this process.
inline std::ptrdiff_t open_descriptors()
{
    const std::filesystem::directory_iterator listing("/proc/self/fd");
    return std::distance(begin(listing), end(listing));
}
