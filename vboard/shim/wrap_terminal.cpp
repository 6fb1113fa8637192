// Serial lines of the board are ptys, which have neither parity nor rate. The page keeps the requested settings, and
// the device model at the other end reads them.
#include "shim.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <termios.h>

namespace vboard::shim {

namespace {

constexpr unsigned kUnixPtySlaveMajor = 136;

// Returns the page's entry of a pty. Takes a new entry when `make` is set.
Terminal *terminal_of(int fd, bool make)
{
    KeepErrno keep;
    struct statx info;
    if (!page() || syscall(SYS_statx, fd, "", AT_EMPTY_PATH, STATX_TYPE, &info) != 0 ||
        info.stx_rdev_major < kUnixPtySlaveMajor || info.stx_rdev_major > kUnixPtySlaveMajor + 7)
        return nullptr;
    const uint32_t device = info.stx_rdev_major << 20 | info.stx_rdev_minor;
    for (Terminal &t : page()->terminals) {
        uint32_t owner = t.device.load(std::memory_order_acquire);
        if (owner == 0 && make && t.device.compare_exchange_strong(owner, device))
            owner = device;
        if (owner == device)
            return &t;
        if (owner == 0)
            return nullptr;
    }
    return nullptr;
}

} // namespace

WRAP(int, tcsetattr, int fd, int actions, const termios *settings)
{
    Call around("tcsetattr", fd);
    if (around.fails())
        return -1;
    using Real = int(int, int, const termios *);
    Terminal *line = terminal_of(fd, true);
    if (!line)
        return static_cast<int>(around.done(NEXT(Real, tcsetattr)(fd, actions, settings)));
    termios plain = *settings;
    plain.c_cflag = (plain.c_cflag & ~static_cast<tcflag_t>(PARENB | PARODD | CSIZE | CSTOPB)) | CS8;
    const int result = NEXT(Real, tcsetattr)(fd, actions, &plain);
    if (result == 0) {
        line->cflag.store(settings->c_cflag);
        line->input_speed.store(cfgetispeed(settings));
        line->output_speed.store(cfgetospeed(settings));
    }
    return static_cast<int>(around.done(result));
}

WRAP(int, tcgetattr, int fd, termios *settings)
{
    Call around("tcgetattr", fd);
    if (around.fails())
        return -1;
    const int result = NEXT(int(int, termios *), tcgetattr)(fd, settings);
    const Terminal *line = result == 0 ? terminal_of(fd, false) : nullptr;
    if (line && line->cflag.load()) {
        constexpr auto kLost = static_cast<tcflag_t>(PARENB | PARODD | CSIZE | CSTOPB);
        settings->c_cflag = (settings->c_cflag & ~kLost) | (line->cflag.load() & kLost);
    }
    return static_cast<int>(around.done(result));
}

} // namespace vboard::shim
