// ddalctl led: front-panel LEDs and the board-wide LEDs-off mode.
#include <ddal/led.h>

#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/output_aside.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

constexpr Choice kLedNames[] = {
    {"status", DDAL_LED_STATUS},
    {"backhaul", DDAL_LED_BACKHAUL},
    {"rf", DDAL_LED_RF},
    {"global", DDAL_LED_GLOBAL_STATE},
};

constexpr Choice kColours[] = {
    {"off", DDAL_LED_OFF},
    {"green", DDAL_LED_SOLID_GREEN},
    {"red", DDAL_LED_SOLID_RED},
    {"yellow", DDAL_LED_SOLID_YELLOW},
    {"blinking-green", DDAL_LED_BLINKING_GREEN},
    {"blinking-red", DDAL_LED_BLINKING_RED},
    {"blinking-yellow", DDAL_LED_BLINKING_YELLOW},
};

// Of the board-wide mode, which is not a lamp.
constexpr Choice kModes[] = {{"disabled", DDAL_LED_DISABLED}, {"enabled", DDAL_LED_ENABLED}};

constexpr Choice kStates[] = {{"off", 0}, {"on", 1}};

std::string colour_name(uint32_t colour)
{
    for (const std::span<const Choice> words : {std::span<const Choice>(kColours), std::span<const Choice>(kModes)})
        for (const Choice &row : words)
            if (row.value == colour)
                return row.word;
    return "colour " + std::to_string(colour);
}

std::string colour_of(uint32_t led)
{
    uint32_t colour = 0;
    require(DDAL(ddal_led_get)(led, &colour));
    return colour_name(colour);
}

void show(const Arguments &, Report &report)
{
    for (const Choice &led : kLedNames)
        report.add(led.word, colour_of(led.value));
}

void get(const Arguments &arguments, Report &report)
{
    report.add("colour", colour_of(arguments.choice("LED", kLedNames)));
}

void set(const Arguments &arguments, Report &)
{
    const uint32_t led = arguments.choice("LED", kLedNames);
    const bool is_mode = led == DDAL_LED_GLOBAL_STATE;
    const uint32_t colour =
        arguments.choice("COLOUR", is_mode ? std::span<const Choice>(kModes) : std::span<const Choice>(kColours));
    require(DDAL(ddal_led_set)(led, colour));
}

void global(const Arguments &arguments, Report &)
{
    const uint32_t state = arguments.choice("STATE", kStates);
    require(quietly([&] { return DDAL(ddal_led_set_global_state)(state, arguments.given("--persist")); }));
}

// The words for the LED before them: LED COLOUR.
std::vector<std::string> colours_of_led(const std::vector<std::string> &words)
{
    return words[0] == "global" ? words_of(kModes) : words_of(kColours);
}

} // namespace

Family led_family()
{
    const Argument led = one_of<kLedNames>("LED", "status, backhaul, rf or global (the board-wide mode)");
    return {"led",
            "front-panel LEDs",
            {
                {"show", "show all LEDs", {}, show},
                {"get", "show one LED", {led}, get},
                {"set",
                 "set one LED; restore the old colour if the LED does not take the new one",
                 {led, text_of("COLOUR",
                               "off, green, red, yellow, blinking-green, blinking-red or blinking-yellow; of global: "
                               "disabled or enabled",
                               colours_of_led)},
                 set},
                {"global",
                 "switch all LEDs of the board and of its PHYs on or off",
                 {one_of<kStates>("STATE", "on or off"), {"--persist", Kind::flag, "keep the state after a restart"}},
                 global},
            }};
}

} // namespace ddalctl
