#include "daemon/faults.h"

#include <cerrno>
#include <cstring>

#include "daemon/board.h"

namespace vboard {

namespace {

// Errors by name; glibc's strerrorname_np knows them all.
int error_of(const std::string &name)
{
    for (int error = 1; error < 134; ++error) {
        const char *known = strerrorname_np(error);
        if (known && name == known)
            return error;
    }
    throw ControlError("\"" + name + "\" is not the name of an error, such as EIO");
}

uint32_t microseconds_of(const std::string &text)
{
    size_t used = 0;
    unsigned long value = 0;
    try {
        value = std::stoul(text, &used);
    } catch (const std::exception &) {
        used = 0;
    }
    const std::string unit = text.substr(used);
    if (used && unit == "us")
        return static_cast<uint32_t>(value);
    if (used && unit == "ms")
        return static_cast<uint32_t>(value * 1000);
    if (used && unit == "s")
        return static_cast<uint32_t>(value * 1000000);
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
        rule.nth = static_cast<uint32_t>(number_of(value));
    else if (name == "count")
        rule.count = static_cast<uint32_t>(number_of(value));
    else if (name == "errno")
        rule.error = error_of(value);
    else if (name == "short")
        rule.limit = static_cast<uint32_t>(number_of(value)) + 1;
    else if (name == "delay")
        rule.delay_us = microseconds_of(value);
    else if (name == "pid")
        rule.pid = static_cast<uint32_t>(number_of(value));
    else
        throw ControlError("no fault option \"" + name + "\"; there are nth, count, errno, short, delay and pid");
}

std::string add(Page &page, const Given &given)
{
    const std::string &target = given.text("CALL:PATH");
    const size_t colon = target.find(':');
    for (uint32_t i = 0; i < kMaxFaults; ++i) {
        FaultRule &rule = page.faults[i];
        if (rule.armed.load())
            continue;
        std::memset(static_cast<void *>(&rule), 0, sizeof rule);
        rule.nth = 1;
        rule.count = 1;
        const std::string call = target.substr(0, colon);
        put(rule.call, call == "*" ? "" : call);
        put(rule.path, colon == std::string::npos ? "" : target.substr(colon + 1));
        for (const std::string &option : given.words("KEY=VALUE"))
            set_option(rule, option);
        rule.armed.store(1, std::memory_order_release);
        page.fault_count.fetch_add(1);
        return std::to_string(i) + "\n";
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
    return std::to_string(number) + " " + (rule.call[0] ? rule.call : "*") + ":" + rule.path +
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
            [](Board &board, const Given &given) { return add(board.page(), given); }},
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

} // namespace vboard
