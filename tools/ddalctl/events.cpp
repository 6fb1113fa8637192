// ddalctl events: the events of all channels of the board, as they happen.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <sstream>
#include <string>

#include "ddalctl/event_source.h"
#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/interrupt.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

std::vector<EventKind> all_kinds()
{
    std::vector<EventKind> kinds;
    for (const auto &of_family : {alarm_events, laa_events, sfp_events, link_events})
        for (const EventKind &kind : of_family())
            kinds.push_back(kind);
    return kinds;
}

std::string names_of_kinds()
{
    std::string names;
    for (const EventKind &kind : all_kinds())
        names += (names.empty() ? "" : ", ") + std::string(kind.name) + (kind.has_index ? ":INDEX" : "");
    return names;
}

// "prescan:2" or "laa".
std::unique_ptr<EventSource> open_named(const std::string &word)
{
    const size_t colon = word.find(':');
    const std::string name = word.substr(0, colon);
    const std::vector<EventKind> kinds = all_kinds();
    const auto kind =
        std::find_if(kinds.begin(), kinds.end(), [&](const EventKind &each) { return name == each.name; });
    if (kind == kinds.end() || (colon != std::string::npos && !kind->has_index))
        throw WrongUse("--only: \"" + word + "\" is not one of " + names_of_kinds());

    const std::string index = colon == std::string::npos ? "0" : word.substr(colon + 1);
    if (index.empty() || index.size() > 9 || index.find_first_not_of("0123456789") != std::string::npos)
        throw WrongUse("--only: \"" + word + "\" needs an index from 0");
    return kind->open(static_cast<uint32_t>(std::stoul(index)));
}

using Sources = std::vector<std::unique_ptr<EventSource>>;

Sources open_chosen(const std::string &list)
{
    Sources sources;
    std::istringstream words(list);
    for (std::string word; std::getline(words, word, ',');)
        sources.push_back(open_named(word));
    if (sources.empty())
        throw WrongUse("--only: name at least one of " + names_of_kinds());
    return sources;
}

void open_kind(Sources &sources, const EventKind &kind, const Report &report)
{
    for (uint32_t index = 0; index < kind.followed; index++) {
        try {
            sources.push_back(kind.open(index));
        } catch (const Failure &failure) {
            const std::string which = kind.followed > 1 ? " " + std::to_string(index) : "";
            report.line(kind.name + which + ": not available (" + failure.what() + ")");
        }
    }
}

// Opens every kind of event that this board has. Of an indexed kind it opens `followed` channels.
Sources open_all(const Report &report)
{
    library_symbol("ddal_unit_get_board"); // report a missing board once
    Sources sources;
    for (const EventKind &kind : all_kinds())
        open_kind(sources, kind, report);
    if (sources.empty())
        throw Failure(-ENODEV, kNothingThere, "this board has no event channels");
    return sources;
}

std::string time_of_day()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local = {};
    localtime_r(&now.tv_sec, &local);
    char text[32];
    const size_t n = strftime(text, sizeof text, "%H:%M:%S", &local);
    snprintf(text + n, sizeof text - n, ".%03ld", now.tv_nsec / 1'000'000);
    return text;
}

void watch(const Arguments &arguments, Report &report)
{
    const uint32_t wanted = arguments.number_or("--count", UINT32_MAX);
    const StopOnSignal stop(arguments);
    const Sources sources = arguments.given("--only") ? open_chosen(arguments.text("--only")) : open_all(report);
    report.lasts("end");
    for (const auto &source : sources)
        report.line(source->name() + ": waiting");

    uint32_t seen = 0;
    for (; seen < wanted; seen++) {
        EventSource *source = next_event(sources);
        if (!source)
            break;
        const Event event = source->take();
        report.event(source->kind(), time_of_day() + "  " + source->name() + ": " + event.text, event.fill);
    }
    stop.require_all(arguments, seen, "events");
}

std::vector<std::string> lists_of_kinds(const std::vector<std::string> &words)
{
    std::vector<std::string> names;
    for (const EventKind &kind : all_kinds())
        names.emplace_back(kind.name);
    return in_list(words, names);
}

} // namespace

Family events_family()
{
    static const std::string only_help =
        "comma-separated: " + names_of_kinds() + " (default: all channels of the board)";
    return {"events",
            "events of all channels",
            {
                {"",
                 "print events as they happen, until interrupted",
                 {text_of("--only", only_help.c_str(), lists_of_kinds),
                  {"--count", Kind::number, "stop after COUNT events", true, UINT32_MAX, 1},
                  kTimeout},
                 watch},
            }};
}

} // namespace ddalctl
