// Refuses calls that change the host as a whole.
#include "shim.h"

#include <stdarg.h>

namespace vboard::shim {

namespace {

int refuse(const char *call)
{
    Call around(call, "");
    errno = EPERM;
    return static_cast<int>(around.done(-1));
}

} // namespace

#define REFUSE(name, ...)                                                                                              \
    WRAP(int, name, __VA_ARGS__)                                                                                       \
    {                                                                                                                  \
        return refuse(#name);                                                                                          \
    }

REFUSE(mount, const char *, const char *, const char *, unsigned long, const void *)
REFUSE(umount, const char *)
REFUSE(umount2, const char *, int)
REFUSE(reboot, int)
REFUSE(chroot, const char *)
REFUSE(pivot_root, const char *, const char *)
REFUSE(swapon, const char *, int)
REFUSE(swapoff, const char *)
REFUSE(sethostname, const char *, size_t)
REFUSE(setdomainname, const char *, size_t)
REFUSE(clock_settime, int, const void *)
REFUSE(settimeofday, const void *, const void *)
REFUSE(stime, const void *)
REFUSE(adjtimex, void *)
REFUSE(clock_adjtime, int, void *)
REFUSE(ntp_adjtime, void *)
REFUSE(adjtime, const void *, void *)
REFUSE(mknod, const char *, mode_t, dev_t)
REFUSE(mknodat, int, const char *, mode_t, dev_t)
REFUSE(__xmknod, int, const char *, mode_t, dev_t *)
REFUSE(__xmknodat, int, int, const char *, mode_t, dev_t *)
REFUSE(init_module, const void *, unsigned long, const char *)
REFUSE(delete_module, const char *, unsigned)
REFUSE(quotactl, int, const char *, int, void *)
REFUSE(acct, const char *)
REFUSE(open_by_handle_at, int, void *, int)
REFUSE(iopl, int)
REFUSE(ioperm, unsigned long, unsigned long, int)
REFUSE(fsopen, const char *, unsigned)
REFUSE(fsconfig, int, unsigned, const char *, const void *, int)
REFUSE(fsmount, int, unsigned, unsigned)
REFUSE(fspick, int, const char *, unsigned)
REFUSE(open_tree, int, const char *, unsigned)
REFUSE(move_mount, int, const char *, int, const char *, unsigned)
REFUSE(mount_setattr, int, const char *, unsigned, void *, size_t)
REFUSE(sethostid, long)

// The machine's list of users who are logged in.
#define IGNORE(name, ...)                                                                                              \
    WRAP(void, name, __VA_ARGS__)                                                                                      \
    {                                                                                                                  \
        refuse(#name);                                                                                                 \
    }

IGNORE(updwtmp, const char *, const void *)
IGNORE(updwtmpx, const char *, const void *)
IGNORE(logwtmp, const char *, const char *, const char *)
IGNORE(login, const void *)
REFUSE(logout, const char *)

WRAP(void *, pututline, const void *)
{
    refuse("pututline");
    return nullptr;
}

WRAP(void *, pututxline, const void *)
{
    refuse("pututxline");
    return nullptr;
}

// System V objects have numbers instead of names. Inside the fence they are the board's, outside the machine's.
#define FENCED(name, parameters, ...)                                                                                  \
    WRAP(int, name, parameters)                                                                                        \
    {                                                                                                                  \
        return page()->fenced ? NEXT(int(parameters), name)(__VA_ARGS__) : refuse(#name);                              \
    }
#define PARAMETERS(...) __VA_ARGS__

FENCED(shmget, PARAMETERS(int key, size_t size, int flags), key, size, flags)
FENCED(msgget, PARAMETERS(int key, int flags), key, flags)
FENCED(semget, PARAMETERS(int key, int count, int flags), key, count, flags)

// Expands names and variables, and starts no shell.
WRAP(int, wordexp, const char *words, void *result, int flags)
{
    constexpr int kNoCommands = 1 << 2; // WRDE_NOCMD
    return NEXT(int(const char *, void *, int), wordexp)(words, result, flags | kNoCommands);
}

} // namespace vboard::shim
