#include "daemon/control.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <sstream>

namespace vboard {

namespace {

enum class Kind { kNumber, kSigned, kDecimal, kBytes, kText };

struct KindText {
    Kind kind;
    const char *text;
};
constexpr KindText kKindTexts[] = {
    {Kind::kNumber, "a number"},
    {Kind::kSigned, "a number"},
    {Kind::kDecimal, "a decimal number"},
    {Kind::kBytes, "pairs of hexadecimal digits"},
    {Kind::kText, "a word"},
};

struct Value {
    const char *name;
    Kind kind;
};
constexpr Value kValues[] = {
    {"ADDRESS", Kind::kNumber},  {"BYTE", Kind::kNumber},     {"BYTES", Kind::kNumber},    {"COUNT", Kind::kNumber},
    {"DEV-ID", Kind::kNumber},   {"EVENT", Kind::kNumber},    {"INDEX", Kind::kNumber},    {"LENGTH", Kind::kNumber},
    {"MAC", Kind::kNumber},      {"MDIO", Kind::kNumber},     {"MS", Kind::kNumber},       {"NUMBER", Kind::kNumber},
    {"OFFSET", Kind::kNumber},   {"PACKET", Kind::kNumber},   {"PACKETS", Kind::kNumber},  {"PAGE", Kind::kNumber},
    {"PORT", Kind::kNumber},     {"QUEUE", Kind::kNumber},    {"REGISTER", Kind::kNumber}, {"RULE", Kind::kNumber},
    {"SKIP", Kind::kNumber},     {"TIMES", Kind::kNumber},    {"VALUE", Kind::kNumber},    {"VLAN", Kind::kNumber},
    {"WORD", Kind::kNumber},     {"CODE", Kind::kSigned},     {"RESULT", Kind::kSigned},   {"AMOUNT", Kind::kDecimal},
    {"DEGREES", Kind::kDecimal}, {"SECONDS", Kind::kDecimal}, {"HEX", Kind::kBytes},       {"BUS-ID", Kind::kText},
    {"CALL", Kind::kText},       {"CALL:PATH", Kind::kText},  {"DEVICE", Kind::kText},     {"FOLDER", Kind::kText},
    {"FRAME", Kind::kText},      {"KEY=VALUE", Kind::kText},  {"NAME", Kind::kText},       {"NODE", Kind::kText},
    {"STATE", Kind::kText},      {"TEXT", Kind::kText},       {"TOKEN", Kind::kText},
};

// One word of a form.
struct Token {
    std::string name; // name of a value; empty if the word is one of `choices`
    Words choices;    // literal words
    Kind kind = Kind::kText;
    bool optional = false;
    bool rest = false;
};

Token token_of(std::string word)
{
    Token token;
    token.optional = word.front() == '[';
    if (token.optional)
        word = word.substr(1, word.size() - 2);
    token.rest = word.ends_with("...");
    if (token.rest)
        word.resize(word.size() - 3);
    if (!std::isupper(static_cast<unsigned char>(word.front()))) {
        std::istringstream in(word);
        for (std::string choice; std::getline(in, choice, '|');)
            token.choices.push_back(choice);
        return token;
    }
    token.name = word;
    for (const Value &value : kValues)
        if (word == value.name) {
            token.kind = value.kind;
            return token;
        }
    throw std::logic_error("no kind of value is called " + word);
}

std::vector<Token> tokens_of(const std::string &form)
{
    std::vector<Token> tokens;
    std::istringstream in(form);
    for (std::string word; in >> word;)
        tokens.push_back(token_of(word));
    return tokens;
}

bool is_hexadecimal(const std::string &word)
{
    return !word.empty() && word.size() % 2 == 0 &&
           std::all_of(word.begin(), word.end(), [](unsigned char c) { return std::isxdigit(c); });
}

std::optional<int64_t> signed_of(const std::string &word)
{
    size_t used = 0;
    int64_t value = 0;
    try {
        value = std::stoll(word, &used, 0);
    } catch (const std::exception &) {
        return {};
    }
    return used == word.size() ? std::optional(value) : std::nullopt;
}

bool fits(const Token &token, const std::string &word)
{
    if (token.name.empty())
        return std::find(token.choices.begin(), token.choices.end(), word) != token.choices.end();
    try {
        switch (token.kind) {
        case Kind::kNumber: number_of(word); return true;
        case Kind::kDecimal: decimal_of(word); return true;
        case Kind::kSigned: return signed_of(word).has_value();
        case Kind::kBytes: return is_hexadecimal(word);
        case Kind::kText: return true;
        }
    } catch (const ControlError &) {
    }
    return false;
}

struct Match {
    bool is_whole;           // all words fit and are complete
    size_t reached;          // words that fit
    const Token *stopped_by; // null: one word too many
    Given given;
};

Match match(const std::vector<Token> &tokens, const Words &words)
{
    Match found{false, 0, nullptr, {}};
    for (const Token &token : tokens) {
        do {
            const bool missing = found.reached == words.size();
            if (missing && (token.optional || (token.rest && found.given.has(token.name))))
                break;
            if (missing || !fits(token, words[found.reached])) {
                found.stopped_by = &token;
                return found;
            }
            const std::string &word = words[found.reached++];
            if (token.name.empty())
                found.given.say(word);
            else
                found.given.add(token.name, word);
        } while (token.rest);
    }
    found.is_whole = found.reached == words.size();
    return found;
}

std::string expected(const Token &token)
{
    if (token.name.empty())
        return {};
    for (const KindText &row : kKindTexts)
        if (row.kind == token.kind)
            return std::string(row.text) + " (" + token.name + ")";
    return token.name;
}

// Makes a text such as "get, list or set".
std::string listed(const std::set<std::string> &words)
{
    std::string list;
    for (auto at = words.begin(); at != words.end(); ++at)
        list += (at == words.begin() ? "" : std::next(at) == words.end() ? " or " : ", ") + *at;
    return list;
}

// Throws the fault, as seen by the rows that match most of the words.
[[noreturn]] void refuse(const ControlFamily &family, const std::vector<std::vector<Token>> &rows, const Words &words)
{
    size_t reached = 0;
    for (const auto &tokens : rows)
        reached = std::max(reached, match(tokens, words).reached);
    std::set<std::string> wanted;
    Words choices;
    Words verbs;
    for (const auto &tokens : rows) {
        const Match found = match(tokens, words);
        if (!tokens.empty())
            verbs.insert(verbs.end(), tokens[0].choices.begin(), tokens[0].choices.end());
        if (found.reached != reached || !found.stopped_by)
            continue;
        wanted.insert(found.stopped_by->choices.begin(), found.stopped_by->choices.end());
        if (const std::string text = expected(*found.stopped_by); !text.empty())
            wanted.insert(text);
        choices.insert(choices.end(), found.stopped_by->choices.begin(), found.stopped_by->choices.end());
    }
    std::string text = std::string(family.name) + ": ";
    if (reached == words.size())
        text += "missing " + listed(wanted);
    else if (wanted.empty())
        text += "\"" + words[reached] + "\" is one word too many";
    else
        text += "\"" + words[reached] + "\" is not " + listed(wanted) + suggestion(words[reached], choices);
    // A misspelt verb can pass for the name of a device.
    if (reached == 1 && std::find(verbs.begin(), verbs.end(), words[0]) == verbs.end())
        text += suggestion(words[0], verbs);
    throw ControlError(text + "; see \"vboard ctl " + family.name + " --help\"");
}

} // namespace

uint64_t number_of(const std::string &word)
{
    size_t used = 0;
    uint64_t value = 0;
    try {
        value = std::stoull(word, &used, 0);
    } catch (const std::exception &) {
        used = 0;
    }
    if (word.empty() || used != word.size() || !std::isdigit(static_cast<unsigned char>(word[0])))
        throw ControlError("\"" + word + "\" is not a number");
    return value;
}

double decimal_of(const std::string &word)
{
    size_t used = 0;
    double value = 0;
    try {
        value = std::stod(word, &used);
    } catch (const std::exception &) {
        used = 0;
    }
    if (word.empty() || used != word.size())
        throw ControlError("\"" + word + "\" is not a number");
    return value;
}

std::vector<uint8_t> Given::bytes(const std::string &name) const
{
    const std::string &digits = text(name);
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < digits.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return bytes;
}

uint64_t Given::within(const std::string &name, uint64_t most) const
{
    const uint64_t value = number_of(text(name));
    if (value > most)
        throw ControlError(name + " is at most " + std::to_string(most));
    return value;
}

int64_t Given::within(const std::string &name, int64_t least, int64_t most) const
{
    const auto value = signed_of(text(name));
    if (!value || *value < least || *value > most)
        throw ControlError(name + " is from " + std::to_string(least) + " to " + std::to_string(most));
    return *value;
}

const ControlFamily *find_family(const std::vector<ControlFamily> &families, const std::string &name)
{
    const auto found = std::find_if(families.begin(), families.end(),
                                    [&](const ControlFamily &family) { return name == family.name; });
    return found == families.end() ? nullptr : &*found;
}

std::string run_control(const ControlFamily &family, Controlled &controlled, const Words &words)
{
    std::vector<std::vector<Token>> rows;
    for (const ControlCommand &command : family.commands()) {
        rows.push_back(tokens_of(command.form));
        const Match found = match(rows.back(), words);
        if (found.is_whole)
            return command.run(controlled, found.given);
    }
    refuse(family, rows, words);
}

NextWords next_words(const ControlFamily &family, const Words &words)
{
    std::set<std::string> literal;
    std::set<std::string> values;
    for (const ControlCommand &command : family.commands()) {
        const std::vector<Token> tokens = tokens_of(command.form);
        const Match found = match(tokens, words);
        if (found.reached != words.size())
            continue;
        const bool repeats = !tokens.empty() && tokens.back().rest;
        if (words.size() >= tokens.size() && !repeats)
            continue;
        const Token &token = words.size() < tokens.size() ? tokens[words.size()] : tokens.back();
        literal.insert(token.choices.begin(), token.choices.end());
        if (!token.name.empty())
            values.insert(token.name);
    }
    return {{literal.begin(), literal.end()}, {values.begin(), values.end()}};
}

} // namespace vboard
