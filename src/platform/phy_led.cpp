// LEDs of the copper PHYs, switched with the board-wide mode.
#include "platform/phy_led.h"

#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>

#include <ddal/phy.h>

#include "core/log.h"
#include "platform/led_table.h"

namespace ddal::platform {

namespace {

// LED function control register of the 88E1510. The lower byte holds the functions of LED 0 and LED 1.
constexpr uint32_t kLedRegister = 16;
constexpr uint32_t kLedPage = 3;
constexpr uint16_t kLedFunctions = 0x00FF;
constexpr uint16_t kForcedOff = 0x88;
constexpr uint16_t kLinkAndActivity = 0x17;

constexpr size_t kDigitOfName = 3;
constexpr unsigned kLastPhy = 3;

struct CloseDirectory {
    void operator()(DIR *directory) const { closedir(directory); }
};
using UniqueDirectory = std::unique_ptr<DIR, CloseDirectory>;

bool is_regular_file(DIR *directory, const dirent &entry)
{
    if (entry.d_type != DT_UNKNOWN)
        return entry.d_type == DT_REG;
    struct stat status;
    return fstatat(dirfd(directory), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode);
}

// Logs under the name of the operation it serves.
int set_one_phy(uint32_t phy_dev, uint32_t colour, const char *caller)
{
    uint16_t value;
    const int result = ddal_phy_read(phy_dev, kLedRegister, kLedPage, &value);
    if (result != 0)
        return result;
    if (colour != DDAL_LED_DISABLED && colour != DDAL_LED_ENABLED)
        return log_error_as(caller, -EINVAL, "unsupported colour (%d) for setting phy led\n", static_cast<int>(colour));
    const uint16_t functions = colour == DDAL_LED_DISABLED ? kForcedOff : kLinkAndActivity;
    return ddal_phy_write(phy_dev, kLedRegister, kLedPage, static_cast<uint16_t>((value & ~kLedFunctions) | functions));
}

} // namespace

int eif_name_to_phy_id(const char *name, uint32_t *phy_dev)
{
    const unsigned digit = strlen(name) > kDigitOfName ? static_cast<unsigned>(name[kDigitOfName] - '0') : kLastPhy + 1;
    if (digit > kLastPhy)
        return log_error(-EINVAL, "wrong ethernet interface name %s\n", name);
    *phy_dev = digit;
    return 0;
}

int mv88e1510_set_phy_led(uint32_t colour)
{
    const UniqueDirectory directory{opendir(kPhyLedDirectory)};
    if (!directory)
        return 0; // a board without PHY LEDs

    int last_error = 0;
    for (;;) {
        errno = 0;
        const dirent *entry = readdir(directory.get());
        if (!entry)
            return errno != 0 ? -errno : last_error;
        if (!is_regular_file(directory.get(), *entry))
            continue;
        uint32_t phy_dev;
        int result = eif_name_to_phy_id(entry->d_name, &phy_dev);
        if (result == 0)
            result = set_one_phy(phy_dev, colour, __func__);
        if (result != 0)
            last_error = result;
    }
}

} // namespace ddal::platform
