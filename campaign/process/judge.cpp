#include "judge.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <regex>
#include <sstream>

#include "memory.h"

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
    {"ddal_ffs_cleanfs", "unmounts, makes and mounts the file system: a failure undoes none of the steps before it"},
    {"ddal_auth_set_login_faildelay|ddal_auth_set_password_history_len",
     "makes a missing file, empty, to have something to lock before it is replaced"},
    {"ddal_trbl_store", "starts a program that makes the file and then fills it"},
};

// The campaign cannot see the card's flash. The visible accesses enter and leave the loader, even around a failure.
constexpr const char *kBracketed = "bsl_upgrade_up_image|bsl_codeload|ddal_ext_rfcard_(upgrade|verify)";

// An operation logs that it cannot read the board type, and goes on as on a board without special wiring.
constexpr const char *kUnknownBoard = "ddal_unit_get_board: Couldn't read board type";

// Operations with a wait that signals end, as their header says.
constexpr const char *kEndedBySignals = "ddal_clk_event_wait_until|ddal_sfn_wait_.*|ddal_rf_fpga_slow_meas_report_wait";

bool fits(const char *operation, const char *pattern)
{
    return std::regex_match(operation, std::regex(pattern));
}

bool may_be_partial(const char *operation)
{
    return std::any_of(std::begin(kPartial), std::end(kPartial),
                       [&](const Partial &p) { return fits(operation, p.operations); });
}

// GLib ends a process without memory, or waits for itself. It also ends a process whose fourth or fifth thread is
// refused: these are GLib's two. Both could start just before, as the second and the third.
bool is_end_in_glib(const Condition &condition, const Outcome &seen)
{
    const bool ends = seen.ended.starts_with("ends with");
    if (condition.name == "memory")
        return (ends && !seen.place.empty()) || (seen.ended == "hangs" && seen.place == kWaitsForItself);
    return ends && fits(seen.place.c_str(), "clone3 EAGAIN of thread [45]");
}

std::string joined(const std::vector<std::string> &lines)
{
    std::string text;
    for (const std::string &line : lines)
        text += "[" + line.substr(0, 100) + "]";
    return text;
}

// Compares a file with the two undisturbed calls: by content if theirs is equal, otherwise by length if that is equal.
bool is_as_wanted(const Baseline &baseline, const std::string &path, const std::string &is)
{
    const auto first = baseline.first.files.find(path);
    const auto again = baseline.again.files.find(path);
    if (first == baseline.first.files.end() || again == baseline.again.files.end())
        return true;
    return first->second == again->second                 ? is == first->second
           : first->second.size() == again->second.size() ? is.size() == first->second.size()
                                                          : true;
}

bool tells(const Outcome &seen, const char *text)
{
    return std::any_of(seen.lines.begin(), seen.lines.end(),
                       [&](const std::string &line) { return line.find(text) != std::string::npos; });
}

bool happens_again(const Baseline &baseline, const std::string &access)
{
    const auto &again = baseline.again.accesses;
    return std::find(again.begin(), again.end(), access) != again.end();
}

// Reports whether each undisturbed call has an effect: the first one may find more to do than the following ones.
bool has_effect(const Baseline &baseline)
{
    const auto &accesses = baseline.first.accesses;
    return !baseline.first.files.empty() ||
           std::any_of(accesses.begin(), accesses.end(),
                       [&](const std::string &access) { return happens_again(baseline, access); });
}

// Reports whether the whole effect of the baseline is present: its files and its accesses.
bool effect_is_whole(const Baseline &baseline, const Outcome &seen)
{
    for (const auto &[path, is] : baseline.first.files) {
        const auto now = seen.files.find(path);
        if (now == seen.files.end() || !is_as_wanted(baseline, path, now->second))
            return false;
    }
    // As often and in the order of the baseline, without those that differ each time.
    auto next = seen.accesses.begin();
    for (const std::string &access : baseline.first.accesses) {
        if (!happens_again(baseline, access))
            continue;
        next = std::find(next, seen.accesses.end(), access);
        if (next == seen.accesses.end())
            return false;
        ++next;
    }
    return true;
}

// Opening a property or an attribute to write does not empty it on a real board, where the kernel serves it.
bool is_emptied_attribute(const std::string &path, const std::string &is)
{
    return (path.rfind("/proc/", 0) == 0 || path.rfind("/sys/", 0) == 0) && is.ends_with(' ');
}

// Checks that every file is old or new.
std::string half_written(const Baseline &baseline, const Outcome &seen, bool died = false)
{
    for (const auto &[path, is] : seen.files) {
        if (is_emptied_attribute(path, is))
            continue;
        if (died && path.find("/.ddal-") != std::string::npos)
            continue; // the next writer removes it
        if (died && path == "the switch")
            continue; // the switch keeps the steps made so far, and the next call completes or removes them
        if (baseline.first.files.count(path) == 0)
            return "changes " + path + " to " + is.substr(0, 60);
        if (!is_as_wanted(baseline, path, is))
            return "leaves " + path + " as " + is.substr(0, 60);
    }
    return {};
}

std::string left_behind(const Baseline &baseline, const Condition &condition, const Outcome &seen)
{
    const Outcome &usual = baseline.first;
    std::ostringstream text;
    if (seen.descriptors > usual.descriptors)
        text << "leaves " << seen.descriptors - usual.descriptors << " descriptors open; ";
    if (seen.threads > usual.threads)
        text << "leaves " << seen.threads - usual.threads << " threads; ";
    if (seen.locks > usual.locks)
        text << "leaves " << seen.locks - usual.locks << " locks; ";
    if (seen.processes > usual.processes)
        text << "leaves " << seen.processes - usual.processes << " processes; ";
    const bool in_place = condition.name.rfind("cancel", 0) != 0; // libc's blocks of a thread also count
    if (in_place && seen.blocks > std::max(usual.blocks, baseline.again.blocks))
        text << "leaves " << seen.blocks - usual.blocks << " blocks of memory; ";
    return text.str();
}

// Reports conditions that take nothing away from the call, which then behaves as if undisturbed.
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
        if (*caller.apart != '\0' && seen.lines.size() > usual.lines.size())
            return {};
        if (seen.output != usual.output && baseline.again.output == usual.output && seen.result == usual.result)
            return "returns " + std::to_string(seen.result) + " with another output";
        return {};
    }
    if (has_effect(baseline) && !fits(caller.name, kBracketed) && effect_is_whole(baseline, seen) && !partial)
        return "has done all, but returns " + std::to_string(seen.result) + " " + joined(seen.lines);
    return {};
}

std::string refused_in_child(const Caller &caller, const Outcome &seen)
{
    return tells(seen, caller.in_child) && !is_success(caller.kind, seen.result)
               ? ""
               : "is not refused in a child: returns " + std::to_string(seen.result) + " " + joined(seen.lines);
}

// Compares with a second call, in which a file with varying content must exist or be missing.
std::string as_second_call(const Baseline &baseline, const Outcome &seen)
{
    const Outcome &usual = baseline.second_call;
    bool same = usual.files.size() == seen.files.size();
    for (const auto &[path, is] : usual.files) {
        const auto first = baseline.first.files.find(path);
        const auto again = baseline.again.files.find(path);
        const bool varies = first != baseline.first.files.end() && again != baseline.again.files.end() &&
                            first->second != again->second;
        const auto now = seen.files.find(path);
        same = same && now != seen.files.end() && (varies ? now->second.size() == is.size() : now->second == is);
    }
    return same ? as_undisturbed(usual, usual, seen) : "another effect than that of a second call";
}

} // namespace

std::string judge_undisturbed(const Caller &caller, const Baseline &baseline, bool usual_board)
{
    const Outcome &seen = baseline.first;
    if (!seen.returned)
        return "does not return: " + seen.ended;
    if (usual_board && is_success(caller.kind, seen.result) == (*caller.refuses != '\0'))
        return "returns " + std::to_string(seen.result) + " " + joined(seen.lines);
    return seen.trouble;
}

std::string judge(const Caller &caller, const Condition &condition, const Baseline &baseline, const Outcome &seen)
{
    if (is_end_in_glib(condition, seen))
        return "";
    if (!seen.ended.empty())
        return seen.ended;
    if (!seen.trouble.empty())
        return seen.trouble;
    if (condition.name == "forked")
        return *caller.in_child ? refused_in_child(caller, seen) : as_second_call(baseline, seen);
    if (condition.name == "exit")
        return may_be_partial(caller.name) ? "" : half_written(baseline, seen, true);
    if (const std::string left = left_behind(baseline, condition, seen); !left.empty())
        return left + "and returns " + std::to_string(seen.result);
    if (seen.cancelled)
        return may_be_partial(caller.name) ? "" : half_written(baseline, seen);
    if (!seen.returned)
        return "does not return";
    if (tells(seen, kUnknownBoard))
        return "";
    const bool ended = condition.name == "timer" && fits(caller.name, kEndedBySignals) && seen.result < 0;
    if (*caller.refuses == '\0' && is_success(caller.kind, baseline.first.result))
        if (const std::string wrong = result_against_effect(caller, baseline, seen); !wrong.empty() && !ended)
            return wrong;
    return is_harmless(condition.name) && !ended ? as_undisturbed(baseline.first, baseline.again, seen) : "";
}

} // namespace campaign
