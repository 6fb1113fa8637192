// Finds the page. Also holds small text functions that work without libc.
#include "shim.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>

namespace vboard::shim {

namespace {

Page *g_page;
pid_t g_program;

[[noreturn]] void stop(const char *why)
{
    syscall(SYS_write, 2, "vboard: ", 8);
    syscall(SYS_write, 2, why, length_of(why));
    syscall(SYS_write, 2, "\n", 1);
    syscall(SYS_exit_group, 127);
    __builtin_unreachable();
}

const char *environment_value(char **environment, const char *name)
{
    const size_t n = length_of(name);
    for (char **entry = environment; entry && *entry; ++entry)
        if (starts_with(*entry, name) && (*entry)[n] == '=')
            return *entry + n + 1;
    return nullptr;
}

// Runs before every other constructor of the process (the library is linked "initfirst"), even before libc has its
// environment. The loader passes the environment.
__attribute__((constructor)) void find_page(int, char **, char **environment)
{
    // Without a board, a preloaded library would let everything through to the host.
    const char *path = environment_value(environment, "VBOARD_PAGE");
    if (!path)
        stop("preloaded without a board; start programs with \"vboard run\"");
    const int fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC, 0));
    if (fd < 0)
        stop("the board's page cannot be opened; is the board directory still there?");
#ifdef SYS_mmap2
    const long at = syscall(SYS_mmap2, nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0L);
#else
    // The last argument is passed on the stack. An int would leave half of its word unset.
    const long at = syscall(SYS_mmap, nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0L);
#endif
    syscall(SYS_close, fd);
    if (at == -1)
        stop("the board's page cannot be mapped");
    auto *page = reinterpret_cast<Page *>(at);
    if (page->magic != kPageMagic || page->version != kPageVersion)
        stop("the board's page is of another version; create the board anew");
    g_page = page;
    g_program = process_id();
    errno = 0;
}

} // namespace

Page *page()
{
    return g_page;
}

pid_t program_id()
{
    return g_program;
}

void *next_symbol(const char *name)
{
    return dlsym(RTLD_NEXT, name);
}

size_t length_of(const char *text)
{
    size_t n = 0;
    while (text[n])
        ++n;
    return n;
}

bool same(const char *a, const char *b)
{
    while (*a && *a == *b) {
        ++a;
        ++b;
    }
    return *a == *b;
}

bool starts_with(const char *text, const char *prefix)
{
    while (*prefix)
        if (*text++ != *prefix++)
            return false;
    return true;
}

bool is_below(const char *path, const char *prefix)
{
    if (prefix[0] == '/' && !prefix[1])
        return path[0] == '/';
    if (!starts_with(path, prefix))
        return false;
    const char next = path[length_of(prefix)];
    return next == '\0' || next == '/';
}

bool append(char *buffer, size_t size, const char *text)
{
    size_t at = length_of(buffer);
    while (*text && at + 1 < size)
        buffer[at++] = *text++;
    buffer[at] = '\0';
    return !*text;
}

void copy_text(char *to, size_t size, const char *from)
{
    to[0] = '\0';
    append(to, size, from);
}

char *format_number(uint64_t value, char *end)
{
    do {
        *--end = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value);
    return end;
}

} // namespace vboard::shim
