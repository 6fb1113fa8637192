#include "ddalctl/evidence.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <dlfcn.h>
#include <iterator>
#include <sstream>
#include <syslog.h>
#include <unistd.h>

#include <ddal/diagnosis.h>

#include "core/mutex_lock.h"

namespace ddalctl {

namespace {

constexpr size_t kMostOutput = 65536; // bytes of programs
constexpr size_t kMostLines = 100;    // of one operation; the first ones tell the cause

struct Line {
    int priority;
    std::string text;
};

struct Collected {
    ddal::core::Mutex mutex;
    std::string operation DDAL_GUARDED_BY(mutex);
    std::vector<Line> lines DDAL_GUARDED_BY(mutex);
    bool is_shown DDAL_GUARDED_BY(mutex) = false;
    bool continues DDAL_GUARDED_BY(mutex) = false; // the last line is not complete
    decltype(&ddal_ext_last_failure) last_failure = nullptr;
};

Collected &collected()
{
    static Collected &one = *new Collected; // threads of the library may log until the process ends
    return one;
}

const char *name_of_priority(int priority)
{
    static constexpr const char *kNames[] = {"emergency", "alert",  "critical", "error",
                                             "warning",   "notice", "info",     "debug"};
    return priority >= 0 && priority < static_cast<int>(std::size(kNames)) ? kNames[priority] : "?";
}

void show(int priority, const std::string &text)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    localtime_r(&now.tv_sec, &parts);
    fprintf(stderr, "%02d:%02d:%02d.%06ld %-7s %s\n", parts.tm_hour, parts.tm_min, parts.tm_sec, now.tv_nsec / 1000,
            name_of_priority(priority), text.c_str());
}

bool is_serious(const Line &line)
{
    return line.priority <= LOG_WARNING;
}

void take_line(void *, int priority, const char *line)
{
    Collected &all = collected();
    const ddal::core::MutexLock lock(all.mutex);
    std::string text = line;
    const bool ends = text.ends_with('\n');
    if (ends)
        text.pop_back();
    if (all.is_shown)
        show(priority, text);
    if (all.continues && !all.lines.empty())
        all.lines.back().text += text;
    else if (all.lines.size() < kMostLines)
        all.lines.push_back({priority, text});
    all.continues = !ends;
}

} // namespace

void collect_evidence(void *library)
{
    const auto set_handler =
        reinterpret_cast<decltype(&ddal_ext_set_log_handler)>(dlsym(library, "ddal_ext_set_log_handler"));
    if (set_handler)
        set_handler(take_line, nullptr);
    collected().last_failure =
        reinterpret_cast<decltype(&ddal_ext_last_failure)>(dlsym(library, "ddal_ext_last_failure"));
}

void begin_evidence(const char *operation)
{
    Collected &all = collected();
    const ddal::core::MutexLock lock(all.mutex);
    all.operation = operation;
    all.lines.clear();
    all.continues = false;
    if (all.last_failure)
        all.last_failure(nullptr);
}

Evidence evidence()
{
    Collected &all = collected();
    const ddal::core::MutexLock lock(all.mutex);
    ddal_ext_failure last{};
    if (all.last_failure)
        all.last_failure(&last);
    const bool serious = std::any_of(all.lines.begin(), all.lines.end(), is_serious);
    std::vector<std::string> lines;
    for (const Line &line : all.lines)
        if (!serious || is_serious(line))
            lines.push_back(line.text);
    return {all.operation, last.error, last.path, serious, lines};
}

void add_output(int fd)
{
    std::string text(kMostOutput, '\0');
    text.resize(static_cast<size_t>(std::max<ssize_t>(pread(fd, text.data(), text.size(), 0), 0)));
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (!line.empty())
            take_line(nullptr, LOG_WARNING, (line + "\n").c_str());
}

bool lines_are_shown()
{
    Collected &all = collected();
    const ddal::core::MutexLock lock(all.mutex);
    return all.is_shown;
}

void show_lines()
{
    Collected &all = collected();
    const ddal::core::MutexLock lock(all.mutex);
    all.is_shown = true;
}

} // namespace ddalctl
