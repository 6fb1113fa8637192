// The driver of the external multiport switch, in place of the library's defaults.
#include <ddal/ex_switch.h>
#include <ddal/phy.h>

#include "switch/exchange.h"

using vboard::client_library::Answer;
using vboard::client_library::call;

namespace {

constexpr int kUnavailable = -16; // this board lacks the switch
constexpr int kNotSupported = -38;

Answer ask(const char *name, const std::vector<int64_t> &in)
{
    Answer answer = call(name, in);
    if (answer.result == kUnavailable)
        answer.result = kNotSupported;
    return answer;
}

template <typename Value>
int get(const char *name, uint32_t port, Value *value)
{
    const Answer answer = ask(name, {port});
    if (answer.result == 0)
        *value = static_cast<Value>(answer.word(0));
    return answer.result;
}

} // namespace

int is_BH3_type_multiport_switch(void)
{
    return call("is_BH3_type_multiport_switch", {}).result == 0 ? 0 : -1;
}

int ex_switch_phy_set_autoneg(uint32_t port, uint32_t state)
{
    return ask("ex_switch_phy_set_autoneg", {port, state}).result;
}

int ex_switch_phy_get_autoneg(uint32_t port, uint32_t *state)
{
    return get("ex_switch_phy_get_autoneg", port, state);
}

int ex_switch_phy_set_duplex_mode(uint32_t port, uint32_t mode)
{
    return ask("ex_switch_phy_set_duplex_mode", {port, mode}).result;
}

int ex_switch_phy_get_duplex_mode(uint32_t port, uint32_t *mode)
{
    return get("ex_switch_phy_get_duplex_mode", port, mode);
}

int ex_switch_phy_set_speed(uint32_t port, uint32_t speed)
{
    return ask("ex_switch_phy_set_speed", {port, speed}).result;
}

int ex_switch_phy_get_speed(uint32_t port, uint32_t *speed)
{
    return get("ex_switch_phy_get_speed", port, speed);
}

int ex_switch_phy_get_copper_loopback(uint32_t port, uint32_t *state)
{
    return get("ex_switch_phy_get_copper_loopback", port, state);
}

int ex_switch_phy_set_copper_loopback(uint32_t port, uint32_t state)
{
    return ask("ex_switch_phy_set_copper_loopback", {port, state}).result;
}

int ex_switch_phy_copper_get_status(uint32_t port, struct ddal_phy_copper_status *status)
{
    const Answer answer = ask("ex_switch_phy_copper_get_status", {port});
    if (answer.result == 0)
        *status = {1, 1000, 1};
    return answer.result;
}

int ex_switch_phy_copper_restart_autoneg(uint32_t port)
{
    return ask("ex_switch_phy_copper_restart_autoneg", {port}).result;
}

int ex_switch_phy_copper_power(uint32_t port, uint32_t on)
{
    return ask("ex_switch_phy_copper_power", {port, on}).result;
}

int ex_switch_phy_copper_reset(uint32_t port)
{
    return ask("ex_switch_phy_copper_reset", {port}).result;
}

int ex_switch_phy_copper_set_config_advert(uint32_t port, uint32_t speed, uint32_t mode, uint32_t enable)
{
    return ask("ex_switch_phy_copper_set_config_advert", {port, speed, mode, enable}).result;
}

int ex_switch_phy_copper_get_config_advert(uint32_t port, uint32_t speed, uint32_t mode, uint16_t *enabled)
{
    const Answer answer = ask("ex_switch_phy_copper_get_config_advert", {port});
    if (answer.result == 0)
        *enabled = answer.word(0) == speed && answer.word(1) == mode && answer.word(2) == 1;
    return answer.result;
}

int ex_switch_phy_copper_set_crossover_mode(uint32_t port, uint32_t mode)
{
    return ask("ex_switch_phy_copper_set_crossover_mode", {port, mode}).result;
}

int ex_switch_phy_copper_get_crossover_mode(uint32_t port, uint16_t *mode)
{
    return get("ex_switch_phy_copper_get_crossover_mode", port, mode);
}

int ex_switch_phy_copper_set_config_advert_pause_frames(uint32_t port, uint32_t pause, uint32_t asym_pause)
{
    return ask("ex_switch_phy_copper_set_config_advert_pause_frames", {port, pause, asym_pause}).result;
}

int ex_switch_phy_copper_get_config_advert_pause_frames(uint32_t port, uint16_t *pause, uint16_t *asym_pause)
{
    const Answer answer = ask("ex_switch_phy_copper_get_config_advert_pause_frames", {port});
    if (answer.result == 0) {
        *pause = static_cast<uint16_t>(answer.word(0));
        *asym_pause = static_cast<uint16_t>(answer.word(1));
    }
    return answer.result;
}
