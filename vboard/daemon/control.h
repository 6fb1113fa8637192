// Control commands as data: parsing, help, completion and documents come from the same row.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "command_line/suggestion.h"

namespace vboard {

using command_line::suggestion;
using Words = std::vector<std::string>;

// A wrong control command; the text goes to the user who typed it.
struct ControlError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Convert a decimal number, or a hexadecimal one after 0x. Both throw ControlError with the word in it.
uint64_t number_of(const std::string &word);
double decimal_of(const std::string &word);

// The words of a command, by the names in its form.
class Given {
public:
    bool has(const std::string &name) const { return values_.contains(name); }
    // Reports whether the user chose this word among the alternatives of the form.
    bool says(const std::string &word) const { return said_.contains(word); }
    const std::string &text(const std::string &name) const { return values_.at(name).front(); }
    template <typename Number = uint32_t>
    Number number(const std::string &name) const
    {
        if constexpr (std::is_signed_v<Number>)
            return static_cast<Number>(
                within(name, std::numeric_limits<Number>::min(), std::numeric_limits<Number>::max()));
        else
            return static_cast<Number>(within(name, std::numeric_limits<Number>::max()));
    }
    template <typename Number = uint32_t>
    Number number_or(const std::string &name, Number otherwise) const
    {
        return has(name) ? number<Number>(name) : otherwise;
    }
    double decimal(const std::string &name) const { return decimal_of(text(name)); }
    std::vector<uint8_t> bytes(const std::string &name) const;
    // Returns all words of a "NAME...", or no words if it was left out.
    Words words(const std::string &name) const { return has(name) ? values_.at(name) : Words{}; }

    void say(const std::string &word) { said_.insert(word); }
    void add(const std::string &name, const std::string &word) { values_[name].push_back(word); }

private:
    uint64_t within(const std::string &name, uint64_t most) const;
    int64_t within(const std::string &name, int64_t least, int64_t most) const;

    std::map<std::string, Words> values_;
    std::set<std::string> said_;
};

// Receiver of control commands: a model, or the board.
class Controlled {
public:
    virtual ~Controlled() = default;
};

// The form lists the words in order: "stop|start" is literal, ADDRESS is a value of a kind that control.cpp lists,
// "[...]" is optional, "NAME..." takes all following words.
struct ControlCommand {
    std::string form;
    std::string help;
    std::function<std::string(Controlled &, const Given &)> run;
};
using ControlTable = std::vector<ControlCommand>;

// A row for the class that receives the command. Calls `act` with the object and, if `act` takes them, the words. A
// returned string is printed.
template <typename Object>
struct ControlRow : ControlCommand {
    template <typename Act>
    ControlRow(std::string form_, std::string help_, Act act)
        : ControlCommand{std::move(form_), std::move(help_), [act](Controlled &controlled, const Given &given) {
                             return text_of(act, static_cast<Object &>(controlled), given);
                         }}
    {
    }

private:
    template <typename Act>
    static auto call(const Act &act, Object &object, const Given &given)
    {
        if constexpr (std::is_invocable_v<Act, Object &, const Given &>)
            return std::invoke(act, object, given);
        else
            return std::invoke(act, object);
    }
    template <typename Act>
    static std::string text_of(const Act &act, Object &object, const Given &given)
    {
        if constexpr (std::is_void_v<decltype(call(act, object, given))>) {
            call(act, object, given);
            return {};
        } else {
            return call(act, object, given);
        }
    }
};

struct ControlFamily {
    const char *name;
    const char *summary;
    ControlTable (*commands)();
};

// Returns the families of the board, then those of all models.
std::vector<ControlFamily> control_families();
// Returns null for an unknown name.
const ControlFamily *find_family(const std::vector<ControlFamily> &families, const std::string &name);

// Runs the command of the words. Throws ControlError.
std::string run_control(const ControlFamily &family, Controlled &controlled, const Words &words);

// Returns the literal words that may follow, and the names of the values, such as ADDRESS.
struct NextWords {
    Words literal;
    Words values;
};
NextWords next_words(const ControlFamily &family, const Words &words);

} // namespace vboard
