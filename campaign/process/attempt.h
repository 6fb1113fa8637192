// One try of one operation, in a process of its own: the condition it runs under, and what the process reports.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace campaign {

enum class Kind;

// "timer", "closed:5" (a mask of descriptors), "memory:3" (the third allocation fails), "call:7.1" (the seventh system
// call fails in its second way).
struct Condition {
    std::string name;
    int number = 0;
    int variant = 0;

    std::string text() const;
};

// In memory that the campaign shares with the process of the try.
struct Report {
    enum Stage : int { kPreparing, kInside, kReturned, kDone };
    std::atomic<int> stage;
    std::atomic<int> listener; // descriptor of the filter's listener plus one; the campaign takes it over
    std::atomic<int> attached;
    std::atomic<int> cancel; // 1: cancel the call's thread, 2: done
    std::atomic<int> caller; // thread of the call
    std::atomic<int> over;   // the call's thread has ended, or is about to
    long result;
    bool cancelled;  // the call did not return
    bool reached;    // the numbered allocation was asked for
    int descriptors; // that are open afterwards and were not before
    int threads;
    int locks;            // on files, and taken semaphores
    int occupied;         // number of a descriptor whose close was made to fail, plus one
    char trace_path[256]; // of the board
    long trace_start;     // bytes of the trace before the call
    long usual_blocks;    // that the undisturbed call leaves
    long blocks;          // of memory
    size_t length;
    uint8_t output[16384];
    char trouble[512]; // what went wrong in the process itself
};

class Attempt {
public:
    Attempt(const Condition &condition, Kind kind, Report &report);

    // The call itself, under the condition.
    void call(const std::function<long()> &body);
    // What a second call needs besides: what the first has used up.
    void between(const std::function<void()> &body) { between_ = body; }
    // What the operation stored.
    void output(const void *bytes, size_t length);
    bool succeeded() const;

private:
    void begin();
    void end();
    void on_another_thread(const std::function<long()> &body);

    const Condition &condition_;
    Kind kind_;
    Report &report_;
    std::function<void()> between_ = [] {};
};

// True when this result tells of success.
bool is_success(Kind kind, long result);

} // namespace campaign
