// Programs that the board's preload library can and cannot intercept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "page/page.h"

namespace vboard {

// A loader that expands "$LIB" in LD_PRELOAD to a folder known here. Other loaders (another C library's, another ABI's)
// find no preload library under that name and run the program without it.
struct Loader {
    uint16_t machine;
    const char *path;
    const char *libraries; // "$LIB"
};

constexpr Loader kLoaders[] = {
    {EM_X86_64, "/lib64/ld-linux-x86-64.so.2", "lib/x86_64-linux-gnu"},
    {EM_AARCH64, "/lib/ld-linux-aarch64.so.1", "lib/aarch64-linux-gnu"},
    {EM_ARM, "/lib/ld-linux-armhf.so.3", "lib/arm-linux-gnueabihf"},
};

enum class Escape { kNone, kPrivileged, kUnreadable, kStatic, kOtherLoader, kOtherProcessor, kInterpreter };

// The end of a sentence that begins with the program's name.
constexpr const char *reason(Escape escape)
{
    switch (escape) {
    case Escape::kNone: return "runs on the board";
    case Escape::kPrivileged:
        return "is setuid, setgid or has file capabilities: the loader ignores the board's preload library";
    case Escape::kUnreadable: return "cannot be read, so that its loader is not known";
    case Escape::kStatic: return "is static or not a whole program file: no loader loads the board's preload library";
    case Escape::kOtherLoader: return "has a loader that does not find the board's preload library";
    case Escape::kInterpreter: return "is a script whose interpreter the board's preload library cannot intercept";
    case Escape::kOtherProcessor: return "is a program of another processor: start the board with --emulator";
    }
    return "";
}

// The beginning of a program file; may be shorter. Makes system calls directly, because the preload library uses it
// too.
struct ProgramHead {
    explicit ProgramHead(const char *host_path)
    {
        const long fd = syscall(SYS_openat, AT_FDCWD, host_path, O_RDONLY | O_CLOEXEC, 0);
        is_readable = fd >= 0;
        if (!is_readable)
            return;
        const long n = syscall(SYS_read, fd, bytes, sizeof bytes);
        syscall(SYS_close, fd);
        length = n > 0 ? static_cast<size_t>(n) : 0;
    }
    bool is_elf() const
    {
        return length >= SELFMAG && bytes[0] == 0x7f && bytes[1] == 'E' && bytes[2] == 'L' && bytes[3] == 'F';
    }
    uint16_t machine() const
    {
        return is_elf() && length >= sizeof(Elf32_Ehdr) ? reinterpret_cast<const Elf32_Ehdr *>(bytes)->e_machine
                                                        : uint16_t{EM_NONE}; // in the same place in both classes
    }
    // Leaves the path from the first line of a script, and an empty text for any other file.
    template <size_t N>
    void copy_interpreter(char (&path)[N]) const
    {
        const auto is_blank = [this](size_t i) { return bytes[i] == ' ' || bytes[i] == '\t'; };
        size_t n = 0;
        size_t at = length > 2 && bytes[0] == '#' && bytes[1] == '!' ? 2 : length;
        while (at < length && is_blank(at))
            ++at;
        while (at < length && !is_blank(at) && bytes[at] != '\n' && n + 1 < N)
            path[n++] = bytes[at++];
        path[n] = '\0';
    }
    // The loader's path; nullptr without one.
    const char *loader() const
    {
        if (length < sizeof(Elf64_Ehdr))
            return nullptr;
        return bytes[EI_CLASS] == ELFCLASS64 ? loader_of<Elf64_Ehdr, Elf64_Phdr>()
                                             : loader_of<Elf32_Ehdr, Elf32_Phdr>();
    }

    bool is_readable = false;
    alignas(8) char bytes[4096];
    size_t length = 0;

private:
    template <typename Header, typename Segment>
    const char *loader_of() const
    {
        const auto *elf = reinterpret_cast<const Header *>(bytes);
        for (size_t i = 0; i < elf->e_phnum; ++i) {
            const uint64_t at = elf->e_phoff + uint64_t{i} * elf->e_phentsize;
            if (at > length || length - at < sizeof(Segment))
                break;
            const auto *segment = reinterpret_cast<const Segment *>(bytes + at);
            if (segment->p_type == PT_INTERP)
                return path_at(segment->p_offset, segment->p_filesz);
        }
        return nullptr;
    }
    const char *path_at(uint64_t at, uint64_t size) const
    {
        const bool is_inside = at <= length && size > 0 && size <= length - at && bytes[at + size - 1] == '\0';
        return is_inside ? bytes + at : "";
    }
};

// As in an ELF header; EM_NONE of anything else.
inline uint16_t machine_of(const char *host_path)
{
    return ProgramHead(host_path).machine();
}

inline bool is_same_path(const char *one, const char *other)
{
    while (*one && *one == *other) {
        ++one;
        ++other;
    }
    return *one == *other;
}

inline bool has_capabilities(const char *host_path)
{
    char value[32];
    return syscall(SYS_getxattr, host_path, "security.capability", value, sizeof value) > 0;
}

constexpr size_t kMostInterpreterName = 256; // of which the kernel reads at most as many bytes
constexpr int kMostInterpreters = 5;         // that the kernel starts for each other

// Leaves the interpreter of a script, which does not escape by itself.
inline Escape escape_of_file(const char *host_path, const Page &page, char (&interpreter)[kMostInterpreterName])
{
    struct statx info;
    if (syscall(SYS_statx, AT_FDCWD, host_path, 0, STATX_MODE, &info) != 0)
        return Escape::kNone;
    if ((info.stx_mode & (S_ISUID | S_ISGID)) || has_capabilities(host_path))
        return Escape::kPrivileged;
    const ProgramHead head(host_path);
    if (!head.is_readable)
        return Escape::kUnreadable;
    head.copy_interpreter(interpreter);
    if (!head.is_elf())
        return Escape::kNone;
    if (head.machine() == EM_NONE)
        return Escape::kStatic;
    if (head.machine() != page.native_machine && !page.emulator[0])
        return Escape::kOtherProcessor;
    const char *loader = head.loader();
    if (!loader)
        return Escape::kStatic;
    for (size_t i = 0; i < sizeof kLoaders / sizeof kLoaders[0]; ++i)
        if (page.loaders & 1u << i && head.machine() == kLoaders[i].machine && is_same_path(loader, kLoaders[i].path))
            return Escape::kNone;
    return Escape::kOtherLoader;
}

inline Escape escape_of(const char *host_path, const Page &page)
{
    char interpreter[kMostInterpreterName] = "";
    Escape escape = escape_of_file(host_path, page, interpreter);
    for (int i = 0; i < kMostInterpreters && escape == Escape::kNone && interpreter[0]; ++i) {
        char name[kMostInterpreterName];
        __builtin_memcpy(name, interpreter, sizeof name);
        interpreter[0] = '\0';
        if (escape_of_file(name, page, interpreter) != Escape::kNone)
            escape = Escape::kInterpreter;
    }
    return escape;
}

} // namespace vboard
