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

} // namespace vboard::shim
