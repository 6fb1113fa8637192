#include "core/sysinfo_file.h"

#include <cerrno>
#include <charconv>
#include <cstdlib>

#include "core/log.h"
#include "core/stream.h"

namespace ddal::core {

namespace {

constexpr std::string_view kBlanks = " \t\r";

class Scanner {
public:
    explicit Scanner(std::string_view text) : rest_(text) {}

    std::string_view rest() const { return rest_; }

    void skip_blanks() { rest_.remove_prefix(std::min(rest_.find_first_not_of(kBlanks), rest_.size())); }

    bool skip(char expected)
    {
        if (!rest_.starts_with(expected))
            return false;
        rest_.remove_prefix(1);
        return true;
    }

    // Reads a decimal number, or a hexadecimal one after "0x". Rejects signs and overflow.
    template <typename Number>
    bool read(Number &number)
    {
        const bool hexadecimal = rest_.starts_with("0x") || rest_.starts_with("0X");
        if (hexadecimal)
            rest_.remove_prefix(2);
        const char *end = rest_.data() + rest_.size();
        const auto [next, error] = std::from_chars(rest_.data(), end, number, hexadecimal ? 16 : 10);
        rest_ = {next, static_cast<size_t>(end - next)};
        return error == std::errc{};
    }

    bool at_end_or_comment() const { return rest_.empty() || rest_.front() == '#'; }

private:
    std::string_view rest_;
};

bool read_key(Scanner &scanner, SysinfoKey &key)
{
    return scanner.read(key.category) && scanner.skip('.') && scanner.read(key.key) && scanner.skip('.') &&
           scanner.read(key.key2);
}

} // namespace

SysinfoLine parse_sysinfo_line(std::string_view text)
{
    Scanner scanner{text};
    SysinfoLine line;
    scanner.skip_blanks();
    if (scanner.at_end_or_comment()) {
        line.kind = SysinfoLine::Kind::empty;
        return line;
    }

    if (!read_key(scanner, line.key))
        return line;
    scanner.skip_blanks();
    if (!scanner.skip('='))
        return line;
    scanner.skip_blanks();
    if (!scanner.read(line.value))
        return line;
    line.tail = scanner.rest();
    scanner.skip_blanks();
    if (scanner.at_end_or_comment())
        line.kind = SysinfoLine::Kind::item;
    return line;
}

SysinfoReader::~SysinfoReader()
{
    free(buffer_);
}

bool SysinfoReader::next()
{
    errno = 0;
    const ssize_t length = read_line(stream_, &buffer_, &capacity_);
    if (length < 0) {
        error_ = feof(stream_) ? 0 : minus_errno();
        return false;
    }
    ++number_;
    text_ = {buffer_, static_cast<size_t>(length)};
    if (text_.ends_with('\n'))
        text_.remove_suffix(1);
    line_ = parse_sysinfo_line(text_);
    if (line_.kind == SysinfoLine::Kind::damaged)
        log_line_as(LOG_WARNING, "ddal_sysinfo", "line %u of the system information is damaged and ignored\n", number_);
    return true;
}

} // namespace ddal::core
