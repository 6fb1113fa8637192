// The editor of the SSH daemon's configuration. For any file and option, only the replaced lines are lost.
//
// Input: one byte (bit 0: edit a user's block, bit 1: delete), then user, option name and value, each up to a NUL, then
// the configuration. Names avoid the characters that make the C library's pattern compiler take unbounded memory; the
// compiler is not under test.
#include "auth/sshd_config.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

namespace {

constexpr size_t kLongestName = 64;
constexpr size_t kReplacedLines = 2; // a block's header and the option
constexpr const char *kCostlySigns = "(){}*+?\\|";

using Stream = std::unique_ptr<FILE, int (*)(FILE *)>;

std::string take_text(std::string_view &input)
{
    const size_t end = std::min(input.find('\0'), input.size());
    std::string text(input.substr(0, end));
    input.remove_prefix(std::min(end + 1, input.size()));
    return text;
}

std::string take_name(std::string_view &input)
{
    std::string name = take_text(input).substr(0, kLongestName);
    std::erase_if(name, [](char c) { return std::string_view(kCostlySigns).find(c) != std::string_view::npos; });
    return name;
}

std::vector<std::string> sorted_lines(const std::string &text)
{
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

std::vector<std::string> lines_without(const std::vector<std::string> &lines, const std::vector<std::string> &other)
{
    std::vector<std::string> rest;
    std::set_difference(lines.begin(), lines.end(), other.begin(), other.end(), std::back_inserter(rest));
    return rest;
}

// Reports whether the edit may remove this line. Checks only plain names, without repeating the pattern match.
bool may_go(const std::string &line, const std::string &name, bool in_block)
{
    const bool plain = std::all_of(name.begin(), name.end(), [](unsigned char c) { return isalnum(c); });
    return !plain || strcasestr(line.c_str(), name.c_str()) || line.find('\0') != std::string::npos ||
           (in_block && strncasecmp(line.c_str(), "Match", 5) == 0);
}

void require(bool condition, const char *what)
{
    if (!condition) {
        fprintf(stderr, "%s\n", what);
        abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const bool in_block = (data[0] & 1) != 0;
    const bool removes = (data[0] & 2) != 0;
    std::string_view input(reinterpret_cast<const char *>(data) + 1, size - 1);
    const std::string user = take_name(input);
    const std::string name = take_name(input);
    const std::string value = take_text(input);
    std::string before(input);

    // fmemopen refuses an empty buffer
    const Stream in{before.empty() ? fopen("/dev/null", "r") : fmemopen(before.data(), before.size(), "r"), fclose};
    char *written = nullptr;
    size_t written_size = 0;
    Stream out{open_memstream(&written, &written_size), fclose};
    const int result = ddal::auth::copy_replace_option(in_block ? user.c_str() : nullptr, name.c_str(),
                                                       removes ? nullptr : value.c_str(), in.get(), out.get());
    out.reset();
    const std::string after(written, written_size);
    free(written);

    if (result == 0) {
        const std::vector<std::string> old_lines = sorted_lines(before);
        const std::vector<std::string> new_lines = sorted_lines(after);
        const size_t replaced = in_block ? kReplacedLines : 1;
        const std::vector<std::string> lost = lines_without(old_lines, new_lines);
        require(lost.size() <= replaced, "too many lines were lost");
        for (const std::string &line : lost)
            require(may_go(line, name, in_block), "a line was lost that was not to be replaced");
        require(lines_without(new_lines, old_lines).size() <= replaced, "lines came from nowhere");
    } else {
        require(result < 0, "a failure is negative");
    }
    return 0;
}
