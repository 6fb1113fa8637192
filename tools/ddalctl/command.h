// A command as data. Parser, help, completion and manual use the same row.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace ddalctl {

class Report;

// A word of the command line and the number that it means.
struct Choice {
    const char *word;
    uint32_t value;
};

enum class Kind {
    number, // decimal, or hexadecimal after 0x
    text,
    bytes, // pairs of hexadecimal digits
    flag,  // an option without a value
    words, // any number of texts
};

// The words that an argument takes, for completion. `words` are the words of the arguments before it, and last the word
// to complete.
using Values = std::vector<std::string> (*)(const std::vector<std::string> &words);

struct Argument {
    const char *name; // "ADDRESS"; an option's begins with "--"
    Kind kind;
    const char *help;
    bool optional = false; // an option is always optional
    uint64_t max = UINT32_MAX;
    uint64_t min = 0;
    uint64_t step = 1;       // a number is a multiple of it
    Values values = nullptr; // null: a number in a small range, or anything

    bool is_option() const { return name[0] == '-'; }
};

// How long a command waits or watches.
inline constexpr uint64_t kLongestWait = 86'400'000; // ms
inline constexpr Argument kTimeout = {"--timeout", Kind::number, "give up after this many milliseconds",
                                      true,        kLongestWait, 1};
// A text argument that is one of `choices`, the name of a file, or of one of the words of `values`.
std::vector<std::string> words_of(std::span<const Choice> choices);
Argument text_of(const char *name, const char *help, Values values, bool optional = false);
template <const auto &choices>
Argument one_of(const char *name, const char *help, bool optional = false)
{
    return text_of(
        name, help, [](const std::vector<std::string> &) { return words_of(choices); }, optional);
}
Argument file(const char *name, const char *help);

// Returns the words that may stand for the last of `words`, with the words before it that a comma separates.
std::vector<std::string> in_list(const std::vector<std::string> &words, const std::vector<std::string> &elements);

// The values that the user gave, by the names of the arguments.
class Arguments {
public:
    bool given(const std::string &name) const { return numbers_.contains(name) || texts_.contains(name); }
    uint64_t number64(const std::string &name) const { return numbers_.at(name); }
    uint32_t number(const std::string &name) const { return static_cast<uint32_t>(numbers_.at(name)); }
    uint32_t number_or(const std::string &name, uint32_t otherwise) const
    {
        return given(name) ? number(name) : otherwise;
    }
    // The number `name`, which is the address of `length` bytes. Throws WrongUse unless all of them lie in 0 to `last`.
    // Call it before DDAL(), which is evaluated before its arguments and loads the library.
    uint64_t start64(const std::string &name, uint64_t length, uint64_t last) const;
    uint32_t start(const std::string &name, uint64_t length, uint32_t last = UINT32_MAX) const
    {
        return static_cast<uint32_t>(start64(name, length, last));
    }
    const std::vector<std::string> &words(const std::string &name) const;
    const std::string &text(const std::string &name) const { return texts_.at(name); }
    // The number `name`, checked against a narrower row for the same argument. Throws WrongUse.
    uint32_t number_as(const Argument &row) const;
    std::vector<uint8_t> bytes(const std::string &name) const;
    // The number of the given word. Throws WrongUse with the list of words if it is not one of them.
    uint32_t choice(const std::string &name, std::span<const Choice> choices) const;

    // Checks a value and stores it. Throws WrongUse.
    void set(const Argument &argument, const std::string &value);

private:
    std::map<std::string, uint64_t> numbers_;
    std::map<std::string, std::string> texts_;
    std::map<std::string, std::vector<std::string>> words_;
};

struct Command {
    const char *verb; // "masked-write"; empty if the family's name alone is the command
    const char *summary;
    std::vector<Argument> arguments;
    void (*run)(const Arguments &arguments, Report &report);
};

struct Family {
    const char *name;
    const char *summary;
    std::vector<Command> commands;
};

} // namespace ddalctl
