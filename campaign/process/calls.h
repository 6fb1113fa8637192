// Parts of the generated callers: the operations of a library that is loaded at run time, and their arguments.
#pragma once

#include <ddal/bsl.h>
#include <ddal/rf_fpga.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "attempt.h"

namespace campaign {

// Meaning of an operation's return value.
enum class Kind { kResult, kCode, kNumber, kPointer, kNothing };

struct Caller {
    const char *name;
    void (*prepare)(); // puts files on the board; may be NULL
    void (*call)(Attempt &);
    Kind kind;
    const char *refuses; // reason why the undisturbed call fails, or ""
    const char *apart;   // reason why the output differs from the result, or ""
    // The line that refuses a call in a child whose parent has called before, or "".
    const char *in_child;
    int seconds;         // limit of the call, in board time
    const char *threads; // who may call it at the same time, as its header says
};

extern const Caller kCallers[];
extern const size_t kCallerCount;
extern const char *const kUnsupported[];
extern const size_t kUnsupportedCount;

// The library under test.
void *library();
void *found(const char *name);
// Loads the library, and names the firmware image of the calls. Prints why it cannot.
bool use_library(const char *library, const char *image);

#define CALL(name) (reinterpret_cast<decltype(&::name)>(found(#name)))

// A stream that the caller reads and writes. Closed at the end of the scope.
class Stream {
public:
    explicit Stream(FILE *file) : file_(file) {}
    ~Stream()
    {
        if (file_)
            fclose(file_);
    }
    Stream(Stream &&other) noexcept : file_(other.file_) { other.file_ = nullptr; }
    Stream(const Stream &) = delete;
    operator FILE *() const { return file_; } // NOLINT(google-explicit-constructor): stands for the stream in a call

private:
    FILE *file_;
};

// Makes a stream in memory with this content, or an empty one to write to.
Stream stream(const char *content);
// Writes a file of the board.
void put(const char *path, const char *content);
// Executes a control command of the board, as `vboard ctl` does.
void control(const char *line);
// Frees the critical sections that a process has ended in.
void free_sections();
// Returns a small image of the RF card's firmware.
const char *image();
uint32_t image_size();
void *address(uint32_t value);

// Releases the resources of a handle of licensed-assisted access.
template <typename Handle>
void free_laa(Handle *handle)
{
    close(handle->fd);
    free(handle);
}

constexpr uint32_t kQuanta[8] = {1, 2, 3, 4, 5, 6, 7, 8};
constexpr uint32_t kWords[8] = {0x01020304, 0x05060708};
constexpr uint8_t kMac[6] = {2, 0, 0x5e, 0x10, 0, 7};
constexpr uint8_t kBytes[64] = {1, 2, 4, 8, 16, 32, 64, 128};
constexpr const char *kPublicKey =
    "ssh-ed25519 AAAAC3NzaC1lZDI1NTE5AAAAIKqX0T2ZcT0g9oZ2yQ0m2v8i1JcPz6x0l0m3m0Gk5c1A board\n";
extern const uint8_t kPassword[32]; // of an erased card

} // namespace campaign
