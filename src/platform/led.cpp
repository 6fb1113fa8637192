// Front-panel LEDs and the board-wide LEDs-off mode.
#include "platform/led.h"

#include <cstring>
#include <fcntl.h>

#include <ddal/led.h>

#include "core/atboot.h"
#include "core/log.h"
#include "core/program.h"
#include "core/transfer.h"
#include "core/unique_fd.h"
#include "platform/led_table.h"
#include "platform/phy_led.h"

using ddal::core::run_program;
using ddal::core::UniqueFd;

namespace ddal::platform {

namespace {

constexpr size_t kTextLength = 20;
constexpr const char *kDeviceTreeTool = "/usr/bin/l2u-dtb";

bool is_global_mode(uint32_t colour)
{
    return colour == DDAL_LED_DISABLED || colour == DDAL_LED_ENABLED;
}

int write_colour(uint32_t led_id, uint32_t colour)
{
    const char *token;
    const int result = colour2brightness(colour, &token);
    if (result != 0)
        return result;
    const int opened = open_ddal_led(led_id);
    if (opened < 0)
        return opened;
    const UniqueFd fd{opened};
    return write_ddal_led(fd.get(), led_id, token);
}

// The tool stores an LEDs-off flag, hence the inverse.
int persist_global_state(bool enabled)
{
    const int result = core::code_of(run_program(kDeviceTreeTool, "set_led", enabled ? "0" : "1"));
    if (result != 0)
        return result;
    return core::code_of(run_program(kDeviceTreeTool, "update"));
}

} // namespace

int colour2brightness(uint32_t colour, const char **token)
{
    for (const LedColour &row : kLedColours) {
        if (row.value == colour) {
            *token = row.token;
            return 0;
        }
    }
    return log_error(-EINVAL, "invalid LED 'colour' %d\n", static_cast<int>(colour));
}

int open_ddal_led(uint32_t led_id)
{
    for (const Led &led : kLeds) {
        if (led.id != led_id)
            continue;
        const int fd = open(led.attribute, O_RDWR | O_CLOEXEC);
        return fd >= 0 ? fd : log_errno("unable to open LED device '%s': %m\n", led.attribute);
    }
    return log_error(-EINVAL, "invalid LED '%u'\n", led_id);
}

int write_ddal_led(int fd, uint32_t led_id, const char *token)
{
    const size_t length = strlen(token);
    errno = 0;
    const ssize_t n = ddal_common_write_all(fd, token, length);
    if (n < 0 || static_cast<size_t>(n) != length)
        return log_errno("unable to write LED device with 'id' %u: %m\n", led_id);
    return 0;
}

int restore_led_global_state()
{
    uint32_t colour;
    const int result = ddal_led_get(DDAL_LED_GLOBAL_STATE, &colour);
    if (result != 0)
        return result;
    return is_global_mode(colour) ? mv88e1510_set_phy_led(colour) : 0;
}

DDAL_ATBOOT_HOOK(leds, restore_led_global_state, "Restore LEDs global state settings")

} // namespace ddal::platform

using namespace ddal::platform;

int ddal_led_get(uint32_t led_id, uint32_t *colour)
{
    const int opened = open_ddal_led(led_id);
    if (opened < 0)
        return opened;
    const UniqueFd fd{opened};

    char text[kTextLength + 1] = {};
    if (ddal_common_read_all(fd.get(), text, kTextLength) < 0)
        return log_errno("unable to read LED device with 'id' 0x%08X (%d): %m\n", led_id, static_cast<int>(led_id));
    text[strcspn(text, "\n")] = '\0';
    for (const LedColour &row : kLedColours) {
        if (strcmp(text, row.text) == 0) {
            *colour = row.value;
            return 0;
        }
    }
    ddal::core::note_answer(fd.get());
    return -EFAULT;
}

int ddal_led_set(uint32_t led_id, uint32_t colour)
{
    uint32_t before = 0;
    int result = ddal_led_get(led_id, &before);
    if (result != 0)
        return result;
    if (before == colour)
        return 0;
    result = write_colour(led_id, colour);
    if (result != 0)
        return result;

    uint32_t after = 0;
    result = ddal_led_get(led_id, &after);
    if (result != 0)
        return result;
    if (after != colour) {
        log_line(LOG_ERR, "unable to write LED 'colour' %d for device with 'id' 0x%08X (%d), read back 'colour' %d\n",
                 static_cast<int>(colour), led_id, static_cast<int>(led_id), static_cast<int>(after));
        result = after == before ? 0 : write_colour(led_id, before);
        return result != 0 ? result : -EINVAL;
    }
    return led_id == DDAL_LED_GLOBAL_STATE && is_global_mode(colour) ? mv88e1510_set_phy_led(colour) : 0;
}

int ddal_led_set_global_state(uint32_t state, uint32_t persist)
{
    if (state > 1)
        return log_error(DDAL_ERR_FAILURE, "Unsupported State\n");
    const int result = persist ? persist_global_state(state == 1) : 0;
    if (result != 0)
        return result;
    return ddal_led_set(DDAL_LED_GLOBAL_STATE, state == 1 ? DDAL_LED_ENABLED : DDAL_LED_DISABLED);
}
