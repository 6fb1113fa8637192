// Plain files of the board: properties and attributes.
#pragma once

#include <cstdint>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace testing_board {

// Writes a file's content. Creates the file if it is missing.
inline void put_file(const std::string &path, const std::string &bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!(out << bytes).flush())
        throw std::runtime_error("cannot write " + path);
}

// Writes a property of 32-bit cells.
inline void put_cells(const std::string &path, std::initializer_list<uint32_t> cells)
{
    std::string bytes;
    for (const uint32_t cell : cells)
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes += static_cast<char>(cell >> shift);
    put_file(path, bytes);
}

inline std::string file_content(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Restores a file's content at the end of the scope.
class KeptFile {
public:
    explicit KeptFile(std::string path) : path_(std::move(path)), content_(file_content(path_)) {}
    ~KeptFile() { put_file(path_, content_); }
    KeptFile(const KeptFile &) = delete;
    KeptFile &operator=(const KeptFile &) = delete;

private:
    std::string path_;
    std::string content_;
};

} // namespace testing_board
