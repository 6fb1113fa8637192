#include "judge.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <regex>
#include <sstream>

namespace campaign {

namespace {

// Operations that may change something and still report a failure.
struct Partial {
    const char *operations;
    const char *why;
};
constexpr Partial kPartial[] = {
    {"ddal_common_write_(string|u32val.*)|ddal_kvb_rpram_set_isti|ddal_devicetree_set_.*|ddal_led_.*|"
     "ddal_boot_set_(reset_loop_count|lmp_netboot|uart|lmt|isolcpus)",
     "writes the file in place: it is empty once it is open, and a failing close comes after the write"},
    {"ddal_auth_set_login_faildelay|ddal_auth_set_password_history_len",
     "makes a missing file, empty, to have something to lock before it is replaced"},
};

// Operations whose wait a signal ends, as their header says.
constexpr const char *kEndedBySignals = "ddal_clk_event_wait_until|ddal_sfn_wait_.*";

// Operations with regular expressions: libc's regcomp() loses blocks where an allocation fails.
constexpr const char *kLibcLosesMemory = "ddal_auth_set_.*|ddal_sshd_set_parameter|ddal_atboot_run";

bool fits(const char *operation, const char *pattern)
{
    return std::regex_match(operation, std::regex(pattern));
}

bool may_be_partial(const char *operation)
{
    return std::any_of(std::begin(kPartial), std::end(kPartial),
                       [&](const Partial &p) { return fits(operation, p.operations); });
}

std::string joined(const std::vector<std::string> &lines)
{
    std::string text;
    for (const std::string &line : lines)
        text += "[" + line.substr(0, 100) + "]";
    return text;
}

// The whole effect of the baseline is there: its files as far as they are the same each time, and its accesses.
bool effect_is_whole(const Baseline &baseline, const Outcome &seen)
{
    for (const auto &[path, is] : baseline.first.files) {
        const auto again = baseline.again.files.find(path);
        const auto now = seen.files.find(path);
        if (now == seen.files.end() ||
            (again != baseline.again.files.end() && again->second == is && now->second != is))
            return false;
    }
    return baseline.first.accesses != baseline.again.accesses ||
           std::all_of(baseline.first.accesses.begin(), baseline.first.accesses.end(), [&](const std::string &access) {
               return std::count(seen.accesses.begin(), seen.accesses.end(), access) != 0;
           });
}

// Every file is as it was or as it is to be.
std::string half_written(const Baseline &baseline, const Outcome &seen, bool died = false)
{
    for (const auto &[path, is] : seen.files) {
        if (died && path.find("/.ddal-") != std::string::npos)
            continue; // the next writer removes it
        const auto wanted = baseline.first.files.find(path);
        if (wanted == baseline.first.files.end())
            return "changes " + path + " to " + is.substr(0, 60);
        const auto again = baseline.again.files.find(path);
        if (wanted->second != is && again != baseline.again.files.end() && again->second == wanted->second)
            return "leaves " + path + " as " + is.substr(0, 60);
    }
    return {};
}

std::string left_behind(const Caller &caller, const Baseline &baseline, const Condition &condition, const Outcome &seen)
{
    const Outcome &usual = baseline.first;
    std::ostringstream text;
    if (seen.descriptors > usual.descriptors)
        text << "leaves " << seen.descriptors - usual.descriptors << " descriptors open; ";
    if (seen.threads > usual.threads)
        text << "leaves " << seen.threads - usual.threads << " threads; ";
    if (seen.processes > usual.processes)
        text << "leaves " << seen.processes - usual.processes << " processes; ";
    const bool in_place = condition.name.rfind("cancel", 0) != 0 && // libc's of a thread count too
                          !(condition.name == "memory" && fits(caller.name, kLibcLosesMemory));
    if (in_place && seen.blocks > std::max(usual.blocks, baseline.again.blocks))
        text << "leaves " << seen.blocks - usual.blocks << " blocks of memory; ";
    return text.str();
}

// Conditions that take nothing away from the call: it does what it does undisturbed.
bool is_harmless(const std::string &name)
{
    return name == "timer" || name == "closed" || name == "dlclose" || name.rfind("sigchld", 0) == 0;
}

std::string as_undisturbed(const Outcome &usual, const Outcome &again, const Outcome &seen)
{
    if (seen.result != usual.result && again.result == usual.result)
        return "returns " + std::to_string(seen.result) + ", undisturbed " + std::to_string(usual.result) + " " +
               joined(seen.lines);
    if (seen.lines != usual.lines && again.lines == usual.lines)
        return "logs " + joined(seen.lines) + ", undisturbed " + joined(usual.lines);
    return {};
}

std::string result_against_effect(const Caller &caller, const Baseline &baseline, const Outcome &seen)
{
    const Outcome &usual = baseline.first;
    const bool partial = may_be_partial(caller.name);
    if (const std::string half = half_written(baseline, seen); !half.empty() && !partial)
        return half + " and returns " + std::to_string(seen.result);
    if (is_success(caller.kind, seen.result)) {
        if (!effect_is_whole(baseline, seen))
            return "returns " + std::to_string(seen.result) + ", but has not done all";
        if (seen.output != usual.output && baseline.again.output == usual.output && seen.result == usual.result)
            return "returns " + std::to_string(seen.result) + " with another output";
        return {};
    }
    if (usual.has_effect() && effect_is_whole(baseline, seen) && !partial)
        return "has done all, but returns " + std::to_string(seen.result) + " " + joined(seen.lines);
    return {};
}

} // namespace

std::string judge_undisturbed(const Caller &caller, const Baseline &baseline)
{
    const Outcome &seen = baseline.first;
    if (!seen.returned)
        return "does not return: " + seen.ended;
    if (is_success(caller.kind, seen.result) == (*caller.refuses != '\0'))
        return "returns " + std::to_string(seen.result) + " " + joined(seen.lines);
    return seen.trouble;
}

std::string judge(const Caller &caller, const Condition &condition, const Baseline &baseline, const Outcome &seen)
{
    if (!seen.ended.empty())
        return seen.ended;
    if (!seen.trouble.empty())
        return seen.trouble;
    if (condition.name == "forked") {
        const Outcome &usual = baseline.second_call;
        return usual.files != seen.files ? "another effect than that of a second call"
                                         : as_undisturbed(usual, usual, seen);
    }
    if (condition.name == "exit")
        return may_be_partial(caller.name) ? "" : half_written(baseline, seen, true);
    if (const std::string left = left_behind(caller, baseline, condition, seen); !left.empty())
        return left + "and returns " + std::to_string(seen.result);
    if (seen.cancelled)
        return may_be_partial(caller.name) ? "" : half_written(baseline, seen);
    if (!seen.returned)
        return "does not return";
    const bool ended = condition.name == "timer" && fits(caller.name, kEndedBySignals) && seen.result < 0;
    if (*caller.refuses == '\0' && is_success(caller.kind, baseline.first.result))
        if (const std::string wrong = result_against_effect(caller, baseline, seen); !wrong.empty() && !ended)
            return wrong;
    return is_harmless(condition.name) && !ended ? as_undisturbed(baseline.first, baseline.again, seen) : "";
}

} // namespace campaign
