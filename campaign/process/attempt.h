// One try of one operation in a separate process: its condition, and the report of the process.
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

// Lies in memory that the campaign shares with the process of the try.
struct Report {
    enum Stage : int { kPreparing, kInside, kReturned, kDone };
    std::atomic<int> stage;
    std::atomic<int> listener; // descriptor of the filter's listener plus one; the campaign takes it over
    std::atomic<int> attached;
    std::atomic<int> cancel; // 1: cancel the call's thread, 2: done
    std::atomic<int> caller; // thread of the call
    std::atomic<int> over;   // the call's thread has ended or is about to end
    long result;
    bool cancelled;  // the call did not return
    bool reached;    // the numbered allocation was requested
    char place[48];  // function of GLib that requested it, or ""
    int descriptors; // open after the call but not before it
    int threads;
    int locks;            // held on files, and taken semaphores
    int occupied;         // number, plus one, of a descriptor with a close that was made to fail
    char trace_path[256]; // of the board
    long trace_start;     // bytes of the trace before the call
    long usual_blocks;    // blocks that the undisturbed call leaves
    long blocks;          // blocks of memory
    size_t length;
    uint8_t output[16384];
    char trouble[512]; // fault of the process itself
};

class Attempt {
public:
    Attempt(const Condition &condition, Kind kind, Report &report);

    // Makes the call under the condition.
    void call(const std::function<long()> &body);
    // Sets up a second call: restores the parts that the first one has used up.
    void between(const std::function<void()> &body) { between_ = body; }
    // Adds the stored output of the operation.
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

// Reports whether this result means success.
bool is_success(Kind kind, long result);

} // namespace campaign
