// Calls every operation from several threads at the same time, as far as its header allows that, under ThreadSanitizer.
//
// usage: threads_campaign LIBRARY IMAGE OPERATION
//        threads_campaign --list
//
// Runs on a virtual board. Status 67: no call succeeded.
#include <algorithm>
#include <atomic>
#include <barrier>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "campaign/process/calls.h"

using Clock = std::chrono::steady_clock;

namespace campaign {

namespace {

constexpr int kThreads = 8;
constexpr int kRounds = 24;                        // calls of a thread, within the time
constexpr auto kEnough = std::chrono::seconds(20); // of the board, after which a thread begins no other call
constexpr int kNeverSucceeded = 67;

// How the threads may use an operation. Calls of other classes open an object for each thread.
enum class Use { kOneObject, kOwnObject, kInTurns };
constexpr const char *kUseNames[] = {"one-object", "own-objects", "in-turns"};

bool begins(const std::string &text, const char *start)
{
    return text.rfind(start, 0) == 0;
}

// The callers name one PHY, file system, file or account, and lists of records are parsed in one buffer. So threads
// take turns with these.
Use use_of(const Caller &caller)
{
    const std::string threads = caller.threads;
    if (!begins(threads, "safe on different units"))
        return begins(threads, "safe") ? Use::kOneObject : Use::kInTurns;
    for (const char *const unit : {"PHY devices", "file systems", "files", "accounts", "lists"})
        if (begins(threads, (std::string("safe on different units: ") + unit).c_str()))
            return Use::kInTurns;
    return Use::kOwnObject;
}

std::mutex one_at_a_time;
std::atomic<int> succeeded;

void call_repeatedly(const Caller &caller, Use use, std::barrier<> &start)
{
    const Condition condition;
    static thread_local Report report;
    start.arrive_and_wait();
    const auto end = Clock::now() + kEnough;
    for (int round = 0; round < kRounds && Clock::now() < end; ++round) {
        std::unique_lock turn(one_at_a_time, std::defer_lock);
        if (use == Use::kInTurns)
            turn.lock();
        Attempt attempt(condition, caller.kind, report);
        caller.call(attempt);
        succeeded += attempt.succeeded();
    }
}

int call_from_all_threads(const Caller &caller)
{
    if (caller.prepare)
        caller.prepare();
    std::barrier start(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&] { call_repeatedly(caller, use_of(caller), start); });
    for (std::thread &thread : threads)
        thread.join();
    return *caller.refuses || succeeded > 0 ? 0 : kNeverSucceeded;
}

int main_of(int argc, char **argv)
{
    if (argc == 2 && !strcmp(argv[1], "--list")) {
        for (size_t i = 0; i < kCallerCount; ++i)
            printf("%s %s\n", kCallers[i].name, kUseNames[static_cast<int>(use_of(kCallers[i]))]);
        return 0;
    }
    const Caller *const end = kCallers + kCallerCount;
    const Caller *const caller =
        argc == 4 ? std::find_if(kCallers, end, [&](const Caller &one) { return !strcmp(one.name, argv[3]); }) : end;
    if (caller == end) {
        fprintf(stderr, "usage: threads_campaign LIBRARY IMAGE OPERATION\n       threads_campaign --list\n");
        return 2;
    }
    if (!use_library(argv[1], argv[2]))
        return 2;
    return call_from_all_threads(*caller);
}

} // namespace

Attempt::Attempt(const Condition &condition, Kind kind, Report &report)
    : condition_(condition), kind_(kind), report_(report)
{
}

void Attempt::call(const std::function<long()> &body)
{
    report_.result = body();
}

void Attempt::output(const void *, size_t) {}

bool Attempt::succeeded() const
{
    return is_success(kind_, report_.result);
}

} // namespace campaign

int main(int argc, char **argv)
{
    return campaign::main_of(argc, argv);
}
