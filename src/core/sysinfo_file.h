// Lines of the system-information file.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string_view>

namespace ddal::core {

struct SysinfoKey {
    uint32_t category;
    uint32_t key;
    uint32_t key2;

    bool operator==(const SysinfoKey &) const = default;
};

struct SysinfoLine {
    enum class Kind { empty, item, damaged };

    Kind kind = Kind::damaged;
    SysinfoKey key = {};
    uint64_t value = 0;
    std::string_view tail; // blanks and comment after the value

    bool is(const SysinfoKey &wanted) const { return kind == Kind::item && key == wanted; }
};

// Parses one line without its newline. The tail refers to `text`.
SysinfoLine parse_sysinfo_line(std::string_view text);

// Reads the lines of a stream, which may hold any content.
class SysinfoReader {
public:
    explicit SysinfoReader(FILE *stream) : stream_(stream) {}
    SysinfoReader(const SysinfoReader &) = delete;
    SysinfoReader &operator=(const SysinfoReader &) = delete;
    ~SysinfoReader();

    // Moves to the next line and reports it if it is damaged. Returns false at the end and after a failure.
    bool next();

    std::string_view text() const { return text_; } // without the newline
    const SysinfoLine &line() const { return line_; }
    unsigned number() const { return number_; }
    int error() const { return error_; } // 0 or a negative errno

private:
    FILE *stream_;
    char *buffer_ = nullptr;
    size_t capacity_ = 0;
    std::string_view text_;
    SysinfoLine line_;
    unsigned number_ = 0;
    int error_ = 0;
};

} // namespace ddal::core
