#include "daemon/faults.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "daemon/board.h"
#include "page/failures.h"
#include "page/rules.h"

namespace vboard {

namespace {

Words known_errors()
{
    Words names;
    for (int error = 1; error < 134; ++error)
        if (const char *name = strerrorname_np(error))
            names.emplace_back(name);
    return names;
}

// Returns the errno of a name; glibc's strerrorname_np knows them all.
int error_of(const std::string &name)
{
    for (int error = 1; error < 134; ++error) {
        const char *known = strerrorname_np(error);
        if (known && name == known)
            return error;
    }
    throw ControlError("\"" + name + "\" is not the name of an error, such as EIO" + suggestion(name, known_errors()));
}

uint32_t count_of(const std::string &value, uint64_t most = UINT32_MAX - 1, uint64_t least = 0)
{
    const uint64_t count = number_of(value);
    if (count < least || count > most)
        throw ControlError(value + " is not from " + std::to_string(least) + " to " + std::to_string(most));
    return static_cast<uint32_t>(count);
}

uint32_t microseconds_of(const std::string &text)
{
    constexpr std::pair<const char *, uint64_t> kUnits[] = {{"us", 1}, {"ms", 1000}, {"s", 1000000}};
    const size_t end = std::min(text.find_first_not_of("0123456789"), text.size());
    for (const auto &[unit, microseconds] : kUnits)
        if (end > 0 && text.substr(end) == unit)
            return count_of(text.substr(0, end), UINT32_MAX / microseconds) * static_cast<uint32_t>(microseconds);
    throw ControlError("\"" + text + "\" is not a time, such as 50ms");
}

template <size_t N>
void put(char (&to)[N], const std::string &text)
{
    if (text.size() >= N)
        throw ControlError("\"" + text + "\" is too long");
    std::memcpy(to, text.c_str(), text.size() + 1);
}

void set_option(FaultRule &rule, const std::string &option)
{
    const size_t equals = option.find('=');
    if (equals == std::string::npos)
        throw ControlError("\"" + option + "\" is not of the form name=value");
    const std::string name = option.substr(0, equals);
    const std::string value = option.substr(equals + 1);
    if (name == "nth")
        rule.nth = count_of(value, UINT32_MAX - 1, 1);
    else if (name == "count")
        rule.count = count_of(value);
    else if (name == "errno")
        rule.error = error_of(value);
    else if (name == "short")
        rule.limit = count_of(value) + 1;
    else if (name == "delay")
        rule.delay_us = microseconds_of(value);
    else if (name == "pid")
        rule.pid = count_of(value);
    else
        throw ControlError("no fault option \"" + name + "\"; there are nth, count, errno, short, delay and pid");
}

void check_call(const std::string &call)
{
    Words known = fault_calls();
    known.insert(known.end(), {"*", ""});
    if (std::find(known.begin(), known.end(), call) == known.end())
        throw ControlError("no call \"" + call + "\"" + suggestion(call, known) +
                           "; a rule names the family: pread stands for pread64 too");
}

bool is_boards_alone(const std::string &path)
{
    const PathRule *best = &kPathRules[0];
    for (const PathRule &rule : kPathRules) {
        const std::string prefix = rule.prefix;
        if (prefix.size() > std::strlen(best->prefix) && (path + "/").starts_with(prefix + "/"))
            best = &rule;
    }
    return best->policy == Policy::kBoard;
}

// Warns of a path without a node. The rule is armed anyway, because programs may still create the path.
std::string warning_about(const Board &board, const std::string &path)
{
    const bool is_prefix = path.ends_with("*");
    if (path.empty() || is_prefix || !is_boards_alone(path) || board.node(path) ||
        std::filesystem::exists(std::filesystem::symlink_status(board.file(path))))
        return {};
    Words known;
    for (const Node &node : board.nodes())
        known.emplace_back(node.path);
    return "warning: no model or file of this board serves " + path + suggestion(path, known) + "\n";
}

std::string add(Board &board, const Given &given)
{
    const std::string &target = given.text("CALL:PATH");
    const size_t colon = target.find(':');
    const std::string call = target.substr(0, colon);
    const std::string path = colon == std::string::npos ? "" : target.substr(colon + 1);
    check_call(call);
    FaultRule fresh{};
    fresh.nth = 1;
    fresh.count = 1;
    put(fresh.call, call == "*" ? "" : call);
    put(fresh.path, path);
    for (const std::string &option : given.words("KEY=VALUE"))
        set_option(fresh, option);
    Page &page = board.page();
    for (uint32_t i = 0; i < kMaxFaults; ++i) {
        FaultRule &rule = page.faults[i];
        if (rule.armed.load())
            continue;
        std::memcpy(static_cast<void *>(&rule), &fresh, sizeof rule);
        rule.armed.store(1, std::memory_order_release);
        page.fault_count.fetch_add(1);
        return std::to_string(i) + "\n" + warning_about(board, path);
    }
    throw ControlError("all " + std::to_string(kMaxFaults) + " fault rules are in use; clear some");
}

void clear(Page &page, uint32_t number)
{
    if (page.faults[number].armed.exchange(0))
        page.fault_count.fetch_sub(1);
}

std::string describe(const FaultRule &rule, uint32_t number)
{
    // Programs write to the page too: a text may lack its end.
    const std::string call(rule.call, strnlen(rule.call, sizeof rule.call));
    const std::string path(rule.path, strnlen(rule.path, sizeof rule.path));
    return std::to_string(number) + " " + (call.empty() ? "*" : call) + ":" + path +
           " nth=" + std::to_string(rule.nth) + " seen=" + std::to_string(rule.seen.load()) +
           " fired=" + std::to_string(rule.fired.load()) + "\n";
}

std::string list(const Page &page)
{
    std::string text;
    for (uint32_t i = 0; i < kMaxFaults; ++i)
        if (page.faults[i].armed.load())
            text += describe(page.faults[i], i);
    return text;
}

} // namespace

ControlTable fault_commands()
{
    using Row = ControlRow<Board>;
    return {
        Row{"add CALL:PATH [KEY=VALUE...]",
            "arm a rule and print its number: the matching calls fail (errno=NAME), move at most N bytes (short=N) or "
            "wait (delay=TIME), from the nth=N on, count=N of them, in the process pid=N",
            [](Board &board, const Given &given) { return add(board, given); }},
        Row{"list", "list the armed rules", [](Board &board) { return list(board.page()); }},
        Row{"clear [RULE]", "remove a rule, or all of them",
            [](Board &board, const Given &given) {
                const uint32_t first = given.number_or("RULE", 0u);
                if (first >= kMaxFaults)
                    throw ControlError("there is no rule " + given.text("RULE"));
                for (uint32_t i = first; i < (given.has("RULE") ? first + 1 : kMaxFaults); ++i)
                    clear(board.page(), i);
            }},
    };
}

Words fault_calls()
{
    Words calls(std::begin(kOtherCalls), std::end(kOtherCalls));
    for (const CallFailures &row : kCallFailures)
        calls.emplace_back(row.call);
    return calls;
}

} // namespace vboard
