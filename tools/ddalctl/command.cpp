#include "ddalctl/command.h"

#include <cerrno>
#include <cstdlib>

#include "command_line/completion.h"
#include "ddalctl/failure.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

// "0 to 4294967292 in steps of 4"
std::string range_of(const Argument &argument)
{
    const std::string range =
        std::to_string(argument.min) + " to " + std::to_string(argument.max - argument.max % argument.step);
    return argument.step == 1 ? range : range + " in steps of " + std::to_string(argument.step);
}

uint64_t parse_number(const Argument &argument, const std::string &text)
{
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const std::string digits = hexadecimal ? text.substr(2) : text;
    const char *allowed = hexadecimal ? "0123456789abcdefABCDEF" : "0123456789";
    if (digits.empty() || digits.find_first_not_of(allowed) != std::string::npos)
        throw WrongUse(std::string(argument.name) + ": \"" + text +
                       "\" is not a number (decimal, or hexadecimal after 0x)");

    errno = 0;
    const unsigned long long value = strtoull(digits.c_str(), nullptr, hexadecimal ? 16 : 10);
    if (errno == ERANGE || value > argument.max || value < argument.min || value % argument.step != 0)
        throw WrongUse(std::string(argument.name) + ": " + text + " is outside " + range_of(argument));
    return value;
}

void check_bytes(const Argument &argument, const std::string &text)
{
    if (text.empty() || text.size() % 2 != 0 || text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        throw WrongUse(std::string(argument.name) + ": \"" + text + "\" is not pairs of hexadecimal digits");
}

} // namespace

std::vector<std::string> words_of(std::span<const Choice> choices)
{
    std::vector<std::string> words;
    for (const Choice &choice : choices)
        words.emplace_back(choice.word);
    return words;
}

Argument text_of(const char *name, const char *help, Values values, bool optional)
{
    return {name, Kind::text, help, optional, UINT32_MAX, 0, 1, values};
}

Argument file(const char *name, const char *help)
{
    return text_of(name, help,
                   [](const std::vector<std::string> &) -> std::vector<std::string> { return {command_line::kFiles}; });
}

std::vector<std::string> in_list(const std::vector<std::string> &words, const std::vector<std::string> &elements)
{
    const std::string begun = words.back().substr(0, words.back().rfind(',') + 1); // npos + 1 is 0
    std::vector<std::string> lists;
    for (const std::string &element : elements)
        lists.push_back(begun + element);
    return lists;
}

void Arguments::set(const Argument &argument, const std::string &value)
{
    if (argument.kind == Kind::number) {
        numbers_[argument.name] = parse_number(argument, value);
        return;
    }
    if (argument.kind == Kind::words)
        words_[argument.name].push_back(value);
    if (argument.kind == Kind::bytes)
        check_bytes(argument, value);
    texts_[argument.name] = value;
}

uint64_t Arguments::start64(const std::string &name, uint64_t length, uint64_t last) const
{
    const uint64_t first = numbers_.at(name);
    if (first > last || (length > 0 && length - 1 > last - first))
        throw WrongUse(name + ": " + std::to_string(length) + " bytes from " + hex(first, 1) + " leave the range " +
                       hex(0, 1) + " to " + hex(last, 1));
    return first;
}

const std::vector<std::string> &Arguments::words(const std::string &name) const
{
    static const std::vector<std::string> none;
    const auto given = words_.find(name);
    return given != words_.end() ? given->second : none;
}

uint32_t Arguments::number_as(const Argument &row) const
{
    return static_cast<uint32_t>(parse_number(row, std::to_string(numbers_.at(row.name))));
}

std::vector<uint8_t> Arguments::bytes(const std::string &name) const
{
    const std::string &digits = text(name);
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < digits.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(strtoul(digits.substr(i, 2).c_str(), nullptr, 16)));
    return bytes;
}

uint32_t Arguments::choice(const std::string &name, std::span<const Choice> choices) const
{
    const std::string &word = text(name);
    std::string words;
    for (const Choice &row : choices) {
        if (word == row.word)
            return row.value;
        words += (words.empty() ? "" : ", ") + std::string(row.word);
    }
    throw WrongUse(name + ": \"" + word + "\" is not one of " + words);
}

} // namespace ddalctl
