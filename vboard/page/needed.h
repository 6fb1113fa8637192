// Finds out whether a program was linked with a certain shared library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <elf.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vboard {

// A mapped ELF file. Makes system calls directly, because the preload library reads it between fork and exec.
class ElfFile {
public:
    explicit ElfFile(const char *host_path)
    {
        const long fd = syscall(SYS_openat, AT_FDCWD, host_path, O_RDONLY | O_CLOEXEC, 0);
        if (fd < 0)
            return;
        struct statx info;
        if (syscall(SYS_statx, fd, "", AT_EMPTY_PATH, STATX_SIZE, &info) == 0 && info.stx_size > 0)
            map(fd, static_cast<size_t>(info.stx_size));
        syscall(SYS_close, fd);
    }
    ~ElfFile()
    {
        if (bytes_)
            syscall(SYS_munmap, bytes_, size_);
    }
    ElfFile(const ElfFile &) = delete;
    ElfFile &operator=(const ElfFile &) = delete;

    bool is_elf() const
    {
        const char *magic = ELFMAG;
        for (size_t i = 0; i < SELFMAG; ++i)
            if (size_ < sizeof(Elf64_Ehdr) || bytes_[i] != magic[i])
                return false;
        return true;
    }
    bool has_64_bits() const { return bytes_[EI_CLASS] == ELFCLASS64; }

    // Returns record `index` of a table, or nullptr if the file ends before it.
    template <typename Record>
    const Record *record(uint64_t table, size_t index) const
    {
        const uint64_t at = table + uint64_t{index} * sizeof(Record);
        return table <= size_ && at <= size_ && size_ - at >= sizeof(Record)
                   ? reinterpret_cast<const Record *>(bytes_ + at)
                   : nullptr;
    }
    // Returns true when the text at `at` is `name`, or `name` with a version behind it ("libx.so" and "libx.so.8").
    bool names_library(uint64_t at, const char *name) const
    {
        for (; *name; ++name, ++at)
            if (at >= size_ || bytes_[at] != *name)
                return false;
        return at < size_ && (bytes_[at] == '\0' || bytes_[at] == '.');
    }

private:
    void map(long fd, size_t size)
    {
#ifdef SYS_mmap2
        const long at = syscall(SYS_mmap2, nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
#else
        const long at = syscall(SYS_mmap, nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
#endif
        if (at == -1)
            return;
        bytes_ = reinterpret_cast<const char *>(at);
        size_ = size;
    }

    const char *bytes_ = nullptr;
    size_t size_ = 0;
};

template <typename Header, typename Segment, typename Entry>
bool is_needed(const ElfFile &file, const char *name)
{
    const auto *header = file.record<Header>(0, 0);
    const Segment *dynamic = nullptr;
    const Segment *segment;
    for (size_t i = 0; i < header->e_phnum && (segment = file.record<Segment>(header->e_phoff, i)); ++i)
        if (segment->p_type == PT_DYNAMIC)
            dynamic = segment;
    if (!dynamic)
        return false;
    const size_t count = static_cast<size_t>(dynamic->p_filesz) / sizeof(Entry);
    const Entry *entry;
    uint64_t texts = 0; // first as an address of the running program
    for (size_t i = 0; i < count && (entry = file.record<Entry>(dynamic->p_offset, i)); ++i)
        if (entry->d_tag == DT_STRTAB)
            texts = entry->d_un.d_ptr;
    for (size_t i = 0; i < header->e_phnum && (segment = file.record<Segment>(header->e_phoff, i)); ++i)
        if (segment->p_type == PT_LOAD && texts >= segment->p_vaddr && texts - segment->p_vaddr < segment->p_filesz) {
            texts = texts - segment->p_vaddr + segment->p_offset;
            break;
        }
    for (size_t i = 0; i < count && (entry = file.record<Entry>(dynamic->p_offset, i)); ++i)
        if (entry->d_tag == DT_NEEDED && file.names_library(texts + entry->d_un.d_val, name))
            return true;
    return false;
}

// Returns true when the program itself names the library. Does not check the program's other libraries.
inline bool needs_library(const char *host_path, const char *name)
{
    const ElfFile file(host_path);
    if (!file.is_elf())
        return false;
    return file.has_64_bits() ? is_needed<Elf64_Ehdr, Elf64_Phdr, Elf64_Dyn>(file, name)
                              : is_needed<Elf32_Ehdr, Elf32_Phdr, Elf32_Dyn>(file, name);
}

} // namespace vboard
