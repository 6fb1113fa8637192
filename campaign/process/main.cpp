// Tries operations of the library in hostile surroundings and holds each result against its effect.
//
// usage: process_campaign LIBRARY IMAGE --only OPERATION [--condition NAME] [--show]
//        process_campaign --list
//
// Runs on a virtual board. Each try is a process of its own; afterwards the board's files are put back.
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <iostream>
#include <sys/prctl.h>
#include <sys/wait.h>

#include "board_state.h"
#include "board_text.h"
#include "calls.h"
#include "client/client.h"
#include "judge.h"
#include "trial.h"

namespace campaign {

namespace {

void *g_library;
std::string g_image;

struct Options {
    std::string only, condition;
    bool show = false;
};

class Run {
public:
    Run(const Caller &caller, const Options &options) : caller_(caller), options_(options), trial_(caller) {}

    int all();

private:
    bool wanted(const Condition &condition) const;
    bool attempt(const Condition &condition);
    void numbered(const char *name, int most, int variants);
    void tell(const Condition &condition, const std::string &why, const Outcome &seen);

    const Caller &caller_;
    const Options &options_;
    Trial trial_;
    Baseline baseline_;
    int points_ = 0;
    int failures_ = 0;
};

bool Run::wanted(const Condition &condition) const
{
    return options_.condition.empty() || condition.text() == options_.condition || condition.name == options_.condition;
}

void Run::tell(const Condition &condition, const std::string &why, const Outcome &seen)
{
    ++failures_;
    std::cout << "FAILED " << caller_.name << " --condition " << condition.text()
              << (seen.place.empty() ? "" : " (" + seen.place + ")") << ": " << why << "\n";
}

// False when the numbered event did not come: there are fewer of them.
bool Run::attempt(const Condition &condition)
{
    const Outcome seen = trial_.run(condition);
    if (options_.show)
        std::cout << condition.text() << ": " << seen.text();
    if (!seen.reached)
        return false;
    ++points_;
    if (const std::string why = judge(caller_, condition, baseline_, seen); !why.empty())
        tell(condition, why, seen);
    return true;
}

// Conditions that fail the first, second, third ... of something, until there is no such one.
void Run::numbered(const char *name, int most, int variants)
{
    Condition condition{name};
    // Every one at first, then fewer and fewer: a regular expression alone makes hundreds of allocations.
    for (condition.number = 1; condition.number <= most; condition.number += 1 + condition.number / 30) {
        for (condition.variant = 0; condition.variant < variants; ++condition.variant) {
            if (!attempt(condition) && condition.variant == 0)
                return;
        }
    }
}

int Run::all()
{
    for (Outcome *outcome : {&baseline_.first, &baseline_.again, &baseline_.second_call}) {
        *outcome = trial_.run({outcome == &baseline_.second_call ? "second-call" : "undisturbed"});
        if (options_.show)
            std::cout << "undisturbed: " << outcome->text();
    }
    ++points_;
    if (const std::string why = judge_undisturbed(caller_, baseline_); !why.empty())
        tell({"undisturbed"}, why, baseline_.first);
    else {
        std::vector<Condition> conditions{{"sigchld-ignored"}, {"sigchld-reaped"}, {"timer"},
                                          {"cancel-pending"},  {"forked"},         {"dlclose"}};
        for (int mask = 1; mask < 8; ++mask)
            conditions.push_back({"closed", mask});
        for (int number = 0; number <= 8; ++number)
            conditions.push_back({"descriptors", number});
        for (int number = 1; number <= 4; ++number)
            conditions.push_back({"exit", number});
        for (const Condition &condition : conditions)
            if (wanted(condition))
                attempt(condition);
        numbered("memory", 2000, 1);
        numbered("call", 400, 2);
        numbered("cancel", 400, 1);
    }
    std::cout << "points " << points_ << " failures " << failures_ << std::endl;
    return failures_ == 0 ? 0 : 1;
}

const Caller *caller_of(const std::string &name)
{
    for (size_t i = 0; i < kCallerCount; ++i)
        if (name == kCallers[i].name)
            return &kCallers[i];
    return nullptr;
}

// Operations that are not there on this board: they share one body.
int unsupported()
{
    int failures = 0;
    for (size_t i = 0; i < kUnsupportedCount; ++i) {
        const int result = reinterpret_cast<int (*)()>(found(kUnsupported[i]))();
        if (result != -ENOSYS) {
            std::cout << "FAILED " << kUnsupported[i] << ": returns " << result << "\n";
            ++failures;
        }
    }
    std::cout << "points 1 failures " << failures << std::endl;
    return failures == 0 ? 0 : 1;
}

int main_of(int argc, char **argv)
{
    std::cout << std::unitbuf;
    if (argc == 2 && std::string(argv[1]) == "--list") {
        for (size_t i = 0; i < kCallerCount; ++i)
            std::cout << kCallers[i].name << "\n";
        return 0;
    }
    Options options;
    for (int i = 3; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--show")
            options.show = true;
        else if (i + 1 < argc && word == "--only")
            options.only = argv[++i];
        else if (i + 1 < argc && word == "--condition")
            options.condition = argv[++i];
        else
            return 2;
    }
    g_image = argc > 2 ? argv[2] : "";
    g_library = argc > 1 ? dlopen(argv[1], RTLD_NOW) : nullptr;
    if (!g_library) {
        std::cerr << "process_campaign: " << dlerror() << "\n";
        return 2;
    }
    if (options.only == "unsupported")
        return unsupported();
    const Caller *const caller = caller_of(options.only);
    if (!caller) {
        std::cerr << "process_campaign: no such operation: " << options.only << "\n";
        return 2;
    }
    board_text();                              // read once, before the library's calls are watched
    prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0); // processes that a try leaves behind come here
    if (caller->prepare)
        caller->prepare();
    return Run(*caller, options).all();
}

} // namespace

void *library()
{
    return g_library;
}

void *found(const char *name)
{
    void *const symbol = dlsym(g_library, name);
    if (!symbol) {
        std::cerr << "process_campaign: " << dlerror() << "\n";
        _exit(99);
    }
    return symbol;
}

const char *image()
{
    return g_image.c_str();
}

} // namespace campaign

int main(int argc, char **argv)
{
    return campaign::main_of(argc, argv);
}
