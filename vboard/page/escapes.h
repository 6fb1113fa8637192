// Programs that a preload library cannot intercept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vboard {

template <typename Header, typename Segment>
bool has_interpreter(const char *head, size_t length)
{
    const auto *elf = reinterpret_cast<const Header *>(head);
    for (size_t i = 0; i < elf->e_phnum; ++i) {
        const uint64_t at = elf->e_phoff + uint64_t{i} * elf->e_phentsize;
        if (at > length || length - at < sizeof(Segment))
            break;
        if (reinterpret_cast<const Segment *>(head + at)->p_type == PT_INTERP)
            return true;
    }
    return false;
}

// The beginning of a program file; may be shorter. Makes system calls directly, because the preload library uses it
// too.
struct ProgramHead {
    explicit ProgramHead(const char *host_path)
    {
        const long fd = syscall(SYS_openat, AT_FDCWD, host_path, O_RDONLY | O_CLOEXEC, 0);
        if (fd < 0)
            return;
        const long n = syscall(SYS_read, fd, bytes, sizeof bytes);
        syscall(SYS_close, fd);
        length = n > 0 ? static_cast<size_t>(n) : 0;
    }
    bool is_elf() const
    {
        return length >= SELFMAG && bytes[0] == 0x7f && bytes[1] == 'E' && bytes[2] == 'L' && bytes[3] == 'F';
    }

    alignas(8) char bytes[4096];
    size_t length = 0;
};

// Returns the machine of an ELF header, or EM_NONE for any other file.
inline uint16_t machine_of(const char *host_path)
{
    const ProgramHead head(host_path);
    if (!head.is_elf() || head.length < sizeof(Elf32_Ehdr))
        return EM_NONE;
    return reinterpret_cast<const Elf32_Ehdr *>(head.bytes)->e_machine; // at the same offset in both classes
}

// The loader ignores a preload library of another processor and runs the program without it.
inline bool is_served_machine(const ProgramHead &head)
{
    constexpr uint16_t kServed[] = {EM_X86_64, EM_AARCH64, EM_ARM};
    const uint16_t machine = reinterpret_cast<const Elf32_Ehdr *>(head.bytes)->e_machine;
    for (const uint16_t served : kServed)
        if (machine == served)
            return true;
    return false;
}

// Returns true for static and setuid programs, and for programs of a processor without a preload library.
inline bool escapes_preload(const char *host_path)
{
    struct statx info;
    if (syscall(SYS_statx, AT_FDCWD, host_path, 0, STATX_MODE, &info) != 0)
        return false;
    if (info.stx_mode & (S_ISUID | S_ISGID))
        return true;
    const ProgramHead head(host_path);
    if (!head.is_elf())
        return false; // a script, whose interpreter is checked when it starts
    if (head.length < sizeof(Elf64_Ehdr) || !is_served_machine(head))
        return true;
    return head.bytes[EI_CLASS] == ELFCLASS64 ? !has_interpreter<Elf64_Ehdr, Elf64_Phdr>(head.bytes, head.length)
                                              : !has_interpreter<Elf32_Ehdr, Elf32_Phdr>(head.bytes, head.length);
}

} // namespace vboard
