// Common declarations of the preload library.
//
// The library stands between a board program and libc. It allocates nothing, takes no lock and keeps errno where a call
// succeeds. It makes system calls directly, so that it never enters its wrappers.
#pragma once

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <sys/syscall.h>
#include <sys/types.h>
#include <type_traits>
#include <unistd.h>

#include "page/page.h"
#include "page/rules.h"

#define SHIM_EXPORT __attribute__((visibility("default")))

// Defines the replacement of a libc function without including libc's declaration.
#define WRAP(result, name, ...) WRAP_AS(result, name, #name, __VA_ARGS__)
#define WRAP_AS(result, tag, symbol, ...)                                                                              \
    extern "C" SHIM_EXPORT result shim_##tag(__VA_ARGS__) __asm__(symbol);                                             \
    extern "C" SHIM_EXPORT result shim_##tag(__VA_ARGS__)

namespace vboard::shim {

// Returns the page of this process's board.
Page *page();

// Returns the next definition of a libc function after this library.
void *next_symbol(const char *name);

template <typename Function>
Function *next(Function *&cache, const char *name)
{
    Function *known = __atomic_load_n(&cache, __ATOMIC_RELAXED);
    if (!known) {
        known = reinterpret_cast<Function *>(next_symbol(name));
        __atomic_store_n(&cache, known, __ATOMIC_RELAXED);
    }
    return known;
}

// Calls the libc function behind the wrapper. `type` is its function type.
#define NEXT(type, name)                                                                                               \
    ([]() -> std::add_pointer_t<type> {                                                                                \
        static std::add_pointer_t<type> cached;                                                                        \
        return ::vboard::shim::next<type>(cached, #name);                                                              \
    }())

// --- text ---------------------------------------------------------------------------------------------------------

size_t length_of(const char *text);
bool same(const char *a, const char *b);
bool starts_with(const char *text, const char *prefix);
// Reports whether `path` is `prefix` or lies below it.
bool is_below(const char *path, const char *prefix);
// Appends to a buffer that always stays terminated. Returns false when the text does not fit.
bool append(char *buffer, size_t size, const char *text);
void copy_text(char *to, size_t size, const char *from);
char *format_number(uint64_t value, char *end); // writes backwards, returns the first digit

// --- raw calls that restore errno -----------------------------------------------------------------------------------

class KeepErrno {
public:
    KeepErrno() : saved_(errno) {}
    ~KeepErrno() { errno = saved_; }

private:
    int saved_;
};

inline pid_t process_id()
{
    return static_cast<pid_t>(syscall(SYS_getpid));
}

// Identifies the process that this program image was started in. Changes after a fork until the next exec.
pid_t program_id();

inline pid_t thread_id()
{
    return static_cast<pid_t>(syscall(SYS_gettid));
}

// --- paths ----------------------------------------------------------------------------------------------------------

struct Path {
    char board[PATH_MAX]; // as the program sees it, with links resolved
    char host[PATH_MAX];  // the actual place
    Policy policy;
};

enum : unsigned {
    kFollow = 1, // follow a link in the last component
    kWrite = 2,  // the call changes the file
    kRemove = 4, // the call removes the name
    kExec = 8,
};

// Resolves a path of the program. Returns false with errno when the path leads nowhere.
bool resolve(int directory, const char *path, unsigned how, Path &out);

// The board's name of a host path (as found in /proc/self/fd).
void board_name(const char *host, char *out, size_t size);

// The board's name of what a descriptor stands for; an empty text when there is none.
void name_of_descriptor(int fd, char *out, size_t size);

// Reports whether a program may change the file behind a descriptor, whichever way it was opened. The kernel answers
// for a descriptor that is not open.
bool may_change(int fd);

// --- nodes ----------------------------------------------------------------------------------------------------------

const Node *node_by_path(const char *board_path);
// `is_device`: set to whether the descriptor is a character device, such as a terminal.
const Node *node_of(int fd, bool *is_device = nullptr);
// Returns the path of the board's serial line behind "/dev/pts/N", or nullptr for any other terminal.
const char *line_behind(const char *terminal);
// The node that a path names, nullptr for a plain file, and after the program has moved or replaced the node.
const Node *node_named(const Path &path);
// The place of a node below a folder of .vboard: kNodeFiles or kNodeHandles.
void place_of(const Node &node, const char *folder, char *out, size_t size);
// Replaces the name of a node by the file with its text, memory, mode and times, for calls that do not transfer bytes.
void lead_to_file(Path &path);
// The access mode that the program opened a descriptor with, or -1 with EBADF. A descriptor on a node's folder or on an
// attribute's file only allows reading; O_SYNC and O_DSYNC in its flags keep the mode.
int access_mode(const Node *node, int fd);
int flags_with_mode(int flags);
// Reports the process's descriptor that a path such as "/proc/4711/fd/7" names, -1 for any other path.
int descriptor_of(const char *board_path);
// Refuses a call on a node with `error`, and puts a line into the daemon's log. Returns -1.
int refuse_on_node(const char *call, const Node &node, int error);
// The number of one handed-out socket, 0 for anything else.
uint32_t serial_of(int fd);
const IoctlForm *ioctl_form(const Node &node, uint32_t request);
// Takes the priority input of a notifying node, if there is one.
void take_signal(int fd);

// --- network --------------------------------------------------------------------------------------------------------

// Reports whether the board has a real network and the process is in it. Only then may requests go to the kernel.
bool is_in_network_of_board();

// --- one call -------------------------------------------------------------------------------------------------------

// Life of one wrapped call: checks for a fault, limits the transfer, writes the trace. Costs two loads without fault
// rules and trace.
class Call {
public:
    Call(const char *name, const char *board_path);
    Call(const char *name, int fd, bool interruptible = true);
    Call(const char *name, const Path &path) : Call(name, path.board) {}

    // Returns true with errno when the call has to fail.
    bool fails();
    // Returns true and cuts `*length` when the transfer is limited. A length of 0 means end of file.
    bool limits(size_t *length);

    void about(uint64_t offset, uint64_t request, const void *bytes, size_t length);
    // Writes the trace line and returns the result.
    long done(long result);
    template <typename T>
    T *done_with(T *result)
    {
        done(result ? 0 : -1);
        return result;
    }

private:
    void look();
    const char *name_;
    char path_[160];
    bool watched_ = false;
    bool interruptible_ = true; // EINTR is plausible
    bool traced_ = false;
    bool on_line_ = false; // a serial line of the board
    int error_ = 0;
    uint32_t limit_ = 0;
    uint64_t offset_ = UINT64_MAX;
    uint64_t request_ = UINT64_MAX;
    const void *bytes_ = nullptr;
    size_t length_ = 0;
};

// --- daemon ---------------------------------------------------------------------------------------------------------

// Descriptors of the library start here, above those of programs.
bool is_own_descriptor(int fd);

struct Exchange {
    uint32_t op;
    uint32_t node;
    uint32_t request;
    uint64_t offset;
    uint32_t flags;
    const void *out; // payload sent
    uint32_t out_length;
    void *in; // payload received
    uint32_t in_length;
    int received_fd; // -1 or a descriptor that came with the answer
};

// Sends one request and waits for its answer. Returns the result (negative: -errno); -EINTR when a signal interrupts
// it.
long exchange(Exchange &message);

// Starts the message bus if no program has needed it so far. Returns a result like `exchange`.
long start_bus();

// Converts such a result to libc's form: -1 and errno.
inline long result_of(long value)
{
    if (value >= 0)
        return value;
    errno = static_cast<int>(-value);
    return -1;
}

// --- shared by the wrapper files ------------------------------------------------------------------------------------

int open_path(int directory, const char *path, int flags, mode_t mode);
// Makes a stream that owns the descriptor. Its transfers reach a model.
FILE *stream_on(int fd, const char *mode);
bool copy_file(const char *from, const char *to);
// Appends to a file of the board's private folder ("/syslog"), even when the program has used up its descriptors. The
// line that reaches the limit is followed by `last`, and by no others.
void append_to_board(const char *name, const char *bytes, size_t length, uint64_t limit, const char *last);
// Transfers on nodes that the daemon serves.
long node_read(const Node &node, uint64_t offset, void *buffer, size_t length);
long node_write(const Node &node, uint64_t offset, const void *buffer, size_t length);
void ensure_environment();

// --- time -----------------------------------------------------------------------------------------------------------

uint32_t speed();
int64_t board_to_host(int64_t ns); // converts a span

} // namespace vboard::shim
