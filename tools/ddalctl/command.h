// A command as data: what is parsed, helped, completed and put into the manual comes from the same row.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace ddalctl {

class Report;

// A word of the command line that stands for a number.
struct Choice {
    const char *word;
    uint32_t value;
};

enum class Kind {
    number, // decimal, or hexadecimal after 0x
    text,
    bytes, // pairs of hexadecimal digits
    flag,  // an option without a value: given or not
};

struct Argument {
    const char *name; // "ADDRESS"; an option's begins with "--"
    Kind kind;
    const char *help;
    bool optional = false; // options always are
    uint64_t max = UINT32_MAX;
    uint64_t min = 0;

    bool is_option() const { return name[0] == '-'; }
};

// What the user gave, by the names of the arguments.
class Arguments {
public:
    bool given(const std::string &name) const { return numbers_.contains(name) || texts_.contains(name); }
    uint64_t number64(const std::string &name) const { return numbers_.at(name); }
    uint32_t number(const std::string &name) const { return static_cast<uint32_t>(numbers_.at(name)); }
    uint32_t number_or(const std::string &name, uint32_t otherwise) const
    {
        return given(name) ? number(name) : otherwise;
    }
    const std::string &text(const std::string &name) const { return texts_.at(name); }
    std::vector<uint8_t> bytes(const std::string &name) const;
    // The value of the word that was given; throws WrongUse, with the list, for a word that is not in it.
    uint32_t choice(const std::string &name, std::span<const Choice> choices) const;

    // Checks and stores; throws WrongUse.
    void set(const Argument &argument, const std::string &value);

private:
    std::map<std::string, uint64_t> numbers_;
    std::map<std::string, std::string> texts_;
};

struct Command {
    const char *verb; // "masked-write"; empty: the family's name alone is the command
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
