// What the processes do at random, and the memory that they share.
#pragma once

#include <atomic>
#include <cstdint>
#include <random>
#include <span>
#include <string>

namespace campaign {

inline constexpr int kWorkers = 8;
inline constexpr const char *kScratch = "/ram"; // of the board

using Random = std::mt19937_64;

struct Worker {
    std::atomic<int64_t> since; // nanoseconds; 0 between operations
    std::atomic<unsigned> operation;
    std::atomic<uint64_t> done;
    // Of its item in the store: the last value that it may have, and the value that it has.
    std::atomic<uint64_t> tried, stored;
};

// Shared by all processes.
struct Shared {
    Worker workers[kWorkers];
    std::atomic<uint64_t> failures;
    std::atomic<uint64_t> busy; // refusals because another process had the card
    std::atomic<int> flashed;   // image in the card; -1 from the start of an upgrade until its success
};
extern Shared *shared;

extern std::string images[2]; // of the RF card

// Returns the nanoseconds of the machine; those of the board pass faster.
int64_t now();
double seconds_since(int64_t start);
void sleep_ms(long milliseconds);

// Prints a fault and counts it.
[[gnu::format(printf, 1, 2)]] void fail(const char *format, ...);

struct Operation {
    const char *name;
    // Returns the operation's result, and reports the faults that it finds.
    int (*run)(Random &, Worker &);
    unsigned share; // relative frequency
};

std::span<const Operation> operations();
unsigned choose(Random &random);
bool is_link_validation(const Operation &operation);

// Keeps the files in which the operations change only a number, to compare with.
void keep_files();

} // namespace campaign
