#include "rf_card/pins.h"

#include <span>

#include <ddal/fpga.h>

#include "core/log.h"
#include "rf_card/rf_card_driver.h"

namespace ddal::rf_card {

namespace {

constexpr uint32_t kTest = kTestPin;
constexpr uint32_t kRst = kRstPin;

struct PinStep {
    uint32_t value;
    uint32_t pause_us;
};

// Two pulses on TEST while RST is low start the loader when RST rises.
constexpr PinStep kEntrySequence[] = {
    {0, 10'000}, {kTest, 10'000}, {0, 10'000}, {kTest, 10'000}, {kRst | kTest, 5'000}, {kRst, 250'000},
};

constexpr PinStep kResetSequence[] = {
    {kRst, 10'000}, {0, 10'000}, {kTest, 10'000}, {kRst | kTest, 5'000}, {kRst, 0},
};

uint32_t drive(Clock &clock, std::span<const PinStep> sequence)
{
    for (const PinStep &step : sequence) {
        if (const uint32_t result = bsl_drive_tst_rst(clock, step.value, step.pause_us); result != 0)
            return result;
    }
    return 0;
}

} // namespace

uint32_t bsl_drive_tst_rst(Clock &clock, uint32_t value, uint32_t pause_us)
{
    if (ddal_fpga_masked_write(kPinRegister, kRst | kTest, value) != 0)
        return log_error(BSL_ERR_PINS, "%s: ERROR: FPGA masked write failed\n", kTag);
    if (pause_us != 0)
        clock.sleep_us(pause_us);
    return 0;
}

uint32_t bsl_entry(Link &link)
{
    if (const uint32_t result = drive(link.clock, kEntrySequence); result != 0)
        return result;
    link.stream.discard_output();
    link.stream.discard_input();
    return 0;
}

uint32_t bsl_reset(Clock &clock)
{
    return drive(clock, kResetSequence);
}

} // namespace ddal::rf_card
