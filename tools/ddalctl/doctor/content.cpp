#include "ddalctl/doctor/content.h"

#include <algorithm>
#include <cstdint>
#include <regex.h>
#include <sstream>

#include <ddal/unit.h>

#include "platform/led_table.h"
#include "storage/ffs_table.h"

namespace ddalctl::doctor {

namespace {

constexpr size_t kCellSize = 4;
constexpr size_t kMacSize = 6;
constexpr size_t kShown = 40; // characters of a wrong content

std::string shown(const std::string &bytes)
{
    std::string text;
    for (const char c : bytes.substr(0, kShown))
        text += c >= ' ' && c <= '~' ? c : c == '\n' ? ' ' : '.';
    text.erase(text.find_last_not_of(' ') + 1);
    return "\"" + text + (bytes.size() > kShown ? "...\"" : "\"");
}

std::string unless(bool right, const std::string &expected, const std::string &bytes)
{
    return right ? "" : "holds " + (bytes.empty() ? "nothing" : shown(bytes)) + ", not " + expected;
}

// An extended expression of POSIX: libc's takes texts of any length, std::regex recurses for each character.
class Expression {
public:
    explicit Expression(const char *pattern)
    {
        compiled_ = regcomp(&expression_, pattern, REG_EXTENDED | REG_NOSUB) == 0;
    }
    ~Expression()
    {
        if (compiled_)
            regfree(&expression_);
    }
    Expression(const Expression &) = delete;
    Expression &operator=(const Expression &) = delete;

    // A text with a NUL does not match.
    bool is_in(const std::string &text) const
    {
        return compiled_ && text.find('\0') == std::string::npos &&
               regexec(&expression_, text.c_str(), 0, nullptr, 0) == 0;
    }

private:
    regex_t expression_{};
    bool compiled_ = false;
};

bool matches(const std::string &text, const char *pattern)
{
    return Expression(pattern).is_in(text);
}

bool is_text(std::string bytes)
{
    while (!bytes.empty() && bytes.back() == '\0')
        bytes.pop_back();
    return !bytes.empty() && bytes.find('\0') == std::string::npos;
}

std::string size_flaw(const std::string &bytes, bool right, const char *expected)
{
    return right ? "" : "holds " + std::to_string(bytes.size()) + " bytes, not " + expected;
}

std::string board_type_flaw(const std::string &bytes)
{
    if (bytes.size() != kCellSize)
        return size_flaw(bytes, false, "4");
    uint32_t value = 0;
    for (const char c : bytes)
        value = value << 8 | static_cast<uint8_t>(c);
    return value < DDAL_BOARD_TYPE_MBO ? "" : "holds " + std::to_string(value) + ", not 0 to 8";
}

bool is_colour(const std::string &bytes)
{
    const std::string line = bytes.substr(0, bytes.find('\n'));
    return std::any_of(std::begin(ddal::platform::kLedColours), std::end(ddal::platform::kLedColours),
                       [&](const auto &row) { return line == row.text; });
}

// Returns the first line that is not empty and does not match, or an empty text.
std::string first_other_line(const std::string &bytes, const char *pattern, bool skip_first = false)
{
    std::istringstream in(bytes);
    std::string line;
    if (skip_first)
        std::getline(in, line);
    const Expression wanted(pattern);
    while (std::getline(in, line)) {
        if (!line.empty() && !wanted.is_in(line))
            return line;
    }
    return "";
}

// A file system is mounted at its place only through its mapper.
std::string mounts_flaw(const std::string &bytes)
{
    std::istringstream in(bytes);
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string device;
        std::string place;
        if (!(words >> device >> place))
            return "holds " + shown(line) + ", not a device and its place";
        for (const auto &fs : ddal::storage::kFlashFileSystems) {
            if (place == fs.mount_point && device != fs.mapper)
                return device + " is mounted at " + place + " instead of " + fs.mapper;
        }
    }
    return "";
}

std::string regions_flaw(const std::string &bytes)
{
    const auto lines = std::count(bytes.begin(), bytes.end(), '\n');
    if (lines < 2)
        return "names no region";
    const std::string other = first_other_line(bytes, "^[0-9a-f]+ +[^ ]+ +[0-9a-f]+ +[^ ]+ *$", true);
    return unless(other.empty(), "address, name, size and state of a region", other);
}

std::string items_flaw(const std::string &bytes)
{
    const std::string other = first_other_line(
        bytes, "^[ \t]*(#.*|[0-9a-fx]+\\.[0-9a-fx]+\\.[0-9a-fx]+[ \t]*=[ \t]*[0-9a-fA-Fx]+[ \t]*(#.*)?)?$");
    return unless(other.empty(), "an item and its value", other);
}

std::string history_flaw(const std::string &bytes)
{
    const bool there =
        matches(bytes, "(^|\n)password[[:space:]]+[^\n]*[[:space:]]pam_pwhistory\\.so[[:space:]][^\n]*remember=[0-9]");
    return there ? "" : "lacks the line \"password ... pam_pwhistory.so ... remember=N\"";
}

} // namespace

std::string flaw_of(Content content, const std::string &bytes)
{
    switch (content) {
    case Content::any:
    case Content::version: return "";
    case Content::decimal:
        return unless(matches(bytes, "^[[:space:]]*-?[0-9]+[[:space:]]*$"), "a decimal number", bytes);
    case Content::hexadecimal:
        return unless(matches(bytes, "^[[:space:]]*(0x)?[0-9a-fA-F]+[[:space:]]*$"), "a hexadecimal number", bytes);
    case Content::text: return unless(is_text(bytes), "a text", bytes);
    case Content::cell: return size_flaw(bytes, bytes.size() == kCellSize, "4");
    case Content::cells: return size_flaw(bytes, !bytes.empty() && bytes.size() % kCellSize == 0, "4 for each cell");
    case Content::board_type: return board_type_flaw(bytes);
    case Content::mac: return size_flaw(bytes, bytes.size() == kMacSize, "6");
    case Content::colour: return unless(is_colour(bytes), "the state of a LED", bytes);
    case Content::mounts: return mounts_flaw(bytes);
    case Content::regions: return regions_flaw(bytes);
    case Content::items: return items_flaw(bytes);
    case Content::history: return history_flaw(bytes);
    }
    return "";
}

} // namespace ddalctl::doctor
