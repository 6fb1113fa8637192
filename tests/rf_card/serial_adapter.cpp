// A serial adapter on the RF card: the modem lines of its port are wired to the microcontroller, RTS to TEST and DTR to
// RST. Preloaded in front of a client that does not know the board, because a pty lacks modem lines.
#include <cstdarg>
#include <cstdint>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "logic/fpga_driver.h"
#include "rf_card/rf_card_driver.h"

using namespace ddal;

namespace {

using Ioctl = int(int, unsigned long, ...);

int drive_pins(Ioctl *real, int lines)
{
    logic::FpgaRegRequest request{};
    request.address = rf_card::kPinRegister;
    request.mask = rf_card::kTestPin | rf_card::kRstPin;
    request.value = (lines & TIOCM_RTS ? 0 : rf_card::kTestPin) | (lines & TIOCM_DTR ? 0 : rf_card::kRstPin);
    const int fd = open(logic::kFpgaNode, O_RDWR | O_CLOEXEC);
    const int result = real(fd, logic::kFpgaRegMaskedWrite, &request);
    close(fd);
    return result;
}

} // namespace

extern "C" __attribute__((visibility("default"))) int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    auto *real = reinterpret_cast<Ioctl *>(dlsym(RTLD_NEXT, "ioctl"));
    return request == TIOCMSET ? drive_pins(real, *static_cast<int *>(argument)) : real(fd, request, argument);
}
