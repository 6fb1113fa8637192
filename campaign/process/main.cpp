// Tries operations of the library in hostile surroundings and compares each result with its effect.
//
// usage: process_campaign LIBRARY IMAGE --only OPERATION [--condition NAME] [--all] [--show] [--other-board]
//        process_campaign --list
//
// Runs on a virtual board. Each try is a separate process; afterwards the board's files are restored.
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <ddal/bcm.h>

#include "board_state.h"
#include "board_text.h"
#include "calls.h"
#include "client/client.h"
#include "judge.h"
#include "trial.h"

namespace campaign {

namespace {

constexpr const char *kNoModel = "exits with 97"; // exit of control()

constexpr useconds_t kNextSecond = 1'100'000; // us of the board

struct Options {
    std::string only, condition;
    bool show = false, every = false, other_board = false;
};

void attach_to_switch()
{
    uint32_t state = 0;
    CALL(ddal_bcm_loopback_get)(18, &state);
}

// Installs the switch's rules. The first process that attaches does so, which is not an effect of any operation.
void install_rules()
{
    const pid_t process = fork();
    if (process == 0) {
        attach_to_switch();
        _exit(0);
    }
    waitpid(process, nullptr, 0);
}

// All operations of the switch attach in the same way, with hundreds of points. A few operations try them; the others
// start in a child of an attached process.
bool starts_attached(const std::string &name)
{
    const bool attaches = name == "ddal_bcm_loopback_get" || name == "ddal_eth_switch_get_tunneling";
    return !attaches && (name.rfind("ddal_bcm_", 0) == 0 || name.rfind("ddal_eth_switch_", 0) == 0);
}

class Run {
public:
    Run(const Caller &caller, const Options &options) : caller_(caller), options_(options), trial_(caller) {}

    int all();

private:
    bool wanted(const Condition &condition) const;
    Outcome attempt(const Condition &condition);
    void undisturbed();
    void numbered(const char *name, int most);
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

Outcome Run::attempt(const Condition &condition)
{
    Outcome seen = trial_.run(condition);
    if (options_.show)
        std::cout << condition.text() << ": " << seen.text();
    if (!seen.reached)
        return seen;
    ++points_;
    if (const std::string why = judge(caller_, condition, baseline_, seen); !why.empty())
        tell(condition, why, seen);
    return seen;
}

// Fails the first, second, third ... event in all its ways, until the number exceeds the events.
void Run::numbered(const char *name, int most)
{
    Condition condition{name};
    // Tries every number at first, then fewer and fewer: a regular expression alone makes hundreds of allocations.
    for (condition.number = 1; condition.number <= most;
         condition.number += options_.every || !options_.condition.empty() ? 1 : 1 + condition.number / 30) {
        int variants = 1;
        for (condition.variant = 0; condition.variant < variants; ++condition.variant) {
            if (!wanted(condition))
                continue;
            const Outcome seen = attempt(condition);
            variants = seen.variants;
            if (variants == 0 || (!seen.reached && variants == 1 && condition.name == "memory"))
                return;
        }
    }
}

void Run::undisturbed()
{
    trial_.run({"setup"});
    for (Outcome *outcome : {&baseline_.first, &baseline_.again, &baseline_.second_call}) {
        usleep(kNextSecond); // so that contents with a time differ
        *outcome = trial_.run({outcome == &baseline_.second_call ? "second-call" : "undisturbed"});
        if (options_.show)
            std::cout << "undisturbed: " << outcome->text();
    }
}

int Run::all()
{
    undisturbed();
    if (baseline_.first.ended == kNoModel) { // an operation of another board
        std::cout << "points 0 failures 0" << std::endl;
        return 0;
    }
    ++points_;
    if (const std::string why = judge_undisturbed(caller_, baseline_, !options_.other_board); !why.empty())
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
        if (starts_attached(caller_.name)) {
            attach_to_switch();
            undisturbed();
        }
        for (const auto &[name, most] : {std::pair{"memory", 2000}, {"call", 400}, {"cancel", 400}})
            if (options_.condition.empty() || options_.condition.rfind(name, 0) == 0)
                numbered(name, most);
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

// Checks the operations that this board lacks, which share one body.
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
        else if (word == "--other-board")
            options.other_board = true;
        else if (word == "--all")
            options.every = true;
        else if (i + 1 < argc && word == "--only")
            options.only = argv[++i];
        else if (i + 1 < argc && word == "--condition")
            options.condition = argv[++i];
        else
            return 2;
    }
    if (argc < 3 || !use_library(argv[1], argv[2]))
        return 2;
    if (options.only == "unsupported")
        return unsupported();
    const Caller *const caller = caller_of(options.only);
    if (!caller) {
        std::cerr << "process_campaign: no such operation: " << options.only << "\n";
        return 2;
    }
    setenv("G_SLICE", "always-malloc", 1);     // each value of GLib is a block that counts, and none is kept for later
    board_text();                              // read before the library's calls are watched
    prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0); // processes that a try leaves behind become children of this one
    if (caller->prepare)
        caller->prepare();
    install_rules();
    return Run(*caller, options).all();
}

} // namespace

} // namespace campaign

int main(int argc, char **argv)
{
    return campaign::main_of(argc, argv);
}
