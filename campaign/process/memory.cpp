#include "memory.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <execinfo.h>
#include <iterator>
#include <link.h>

#include "board_text.h"

extern "C"
{
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
void __libc_free(void *block);
}

namespace campaign {

namespace {

std::atomic<bool> g_watching;
std::atomic<int> g_left; // allocations until the failing one
std::atomic<bool> g_failed;
std::atomic<long> g_blocks;
char *g_place;

// regcomp() of the C library loses blocks, or frees one twice, when an allocation fails.
const TextRange &regular_expressions()
{
    static const TextRange range = [] {
        Dl_info library{};
        ElfW(Sym) *symbol = nullptr;
        dladdr1(dlsym(RTLD_DEFAULT, "regcomp"), &library, reinterpret_cast<void **>(&symbol), RTLD_DL_SYMENT);
        const auto from = reinterpret_cast<uintptr_t>(library.dli_saddr);
        return TextRange{from, from + symbol->st_size};
    }();
    return range;
}

bool lies_in(const TextRange &range, uintptr_t at)
{
    return at >= range.from && at < range.to;
}

// The calls that lead to the present allocation, the innermost first.
struct Backtrace {
    void *frames[24];
    int depth = backtrace(frames, static_cast<int>(std::size(frames)));
};

// The board's switch client throws when memory is short, and its preload library represents the kernel. Neither is
// failed.
bool is_not_of_the_library(const Backtrace &calls)
{
    return std::any_of(calls.frames, calls.frames + calls.depth, [](void *frame) {
        const auto at = reinterpret_cast<uintptr_t>(frame);
        return lies_in(regular_expressions(), at) ||
               std::any_of(board_text().begin(), board_text().end(),
                           [&](const TextRange &range) { return lies_in(range, at); });
    });
}

// Returns "GLib" if GLib requests the allocation itself, the name of a function that cannot report the failure, or "".
const char *place_in_glib(const Backtrace &calls)
{
    const char *place = "";
    for (int i = 0; i < calls.depth; ++i) {
        Dl_info info{};
        if (!dladdr(calls.frames[i], &info) || strstr(info.dli_fname, "/libddal") || strstr(info.dli_fname, "/ld-"))
            break;
        if (info.dli_sname && strcmp(info.dli_sname, kWaitsForItself) == 0)
            return kWaitsForItself;
        for (const char *const library : {"/libglib-", "/libgobject-", "/libgio-"})
            if (strstr(info.dli_fname, library))
                place = "GLib";
    }
    return place;
}

bool fails()
{
    thread_local bool looking = false;
    if (!g_watching || g_left == 0 || looking)
        return false;
    looking = true;
    const Backtrace calls{};
    const bool failing = !is_not_of_the_library(calls) && g_left.fetch_sub(1) == 1;
    if (failing)
        strcpy(g_place, place_in_glib(calls));
    looking = false;
    if (!failing)
        return false;
    g_failed = true;
    errno = ENOMEM;
    return true;
}

void *counted(void *block)
{
    g_blocks += block != nullptr;
    return block;
}

} // namespace

void count_blocks()
{
    g_blocks = 0;
}

void watch_memory(int nth, char *place)
{
    Backtrace{}; // the first one allocates
    g_place = place;
    g_failed = false;
    g_left = nth;
    g_watching = true;
}

bool unwatch_memory()
{
    g_watching = false;
    return g_failed;
}

long blocks_left()
{
    return g_blocks;
}

} // namespace campaign

using campaign::counted;
using campaign::fails;

extern "C"
{

void *malloc(size_t size)
{
    return fails() ? nullptr : counted(__libc_malloc(size));
}

void *calloc(size_t count, size_t size)
{
    return fails() ? nullptr : counted(__libc_calloc(count, size));
}

void *realloc(void *block, size_t size)
{
    if (fails())
        return nullptr;
    void *const moved = __libc_realloc(block, size);
    return block ? moved : counted(moved);
}

void *memalign(size_t alignment, size_t size)
{
    return fails() ? nullptr : counted(__libc_memalign(alignment, size));
}

void *aligned_alloc(size_t alignment, size_t size)
{
    return memalign(alignment, size);
}

int posix_memalign(void **block, size_t alignment, size_t size)
{
    void *const made = memalign(alignment, size);
    if (!made)
        return ENOMEM;
    *block = made;
    return 0;
}

void free(void *block)
{
    campaign::g_blocks -= block != nullptr;
    __libc_free(block);
}

} // extern "C"
