// clone() for test programs that run under the user-mode emulator without a board: the emulator cannot make a child
// with an exit signal other than SIGCHLD. On a board the preload library does the same.
#include <cerrno>
#include <csignal>
#include <dlfcn.h>
#include <sched.h>

extern "C" int clone(int (*body)(void *), void *stack, int flags, void *argument, ...)
{
    using Clone = int(int (*)(void *), void *, int, void *, ...);
    static auto *const next = reinterpret_cast<Clone *>(dlsym(RTLD_NEXT, "clone"));
    const int result = next(body, stack, flags, argument);
    if (result < 0 && errno == EINVAL && !(flags & CSIGNAL))
        return next(body, stack, flags | SIGCHLD, argument);
    return result;
}
