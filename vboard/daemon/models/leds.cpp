#include "daemon/models/leds.h"

#include <algorithm>
#include <cerrno>

#include "daemon/board.h"

namespace vboard {

using namespace ddal::platform;

namespace {

std::string last_word_of(const std::string &path)
{
    return path.substr(path.rfind('/') + 1);
}

const LedColour *colour_of_token(const std::string &token)
{
    const auto *found = std::find_if(std::begin(kLedColours), std::end(kLedColours),
                                     [&](const LedColour &row) { return token == row.token; });
    return found == std::end(kLedColours) ? nullptr : found;
}

const LedColour *colour_of_word(const std::string &token)
{
    const LedColour *colour = colour_of_token(token);
    if (!colour)
        throw ControlError("\"" + token + "\" is no token of a colour");
    return colour;
}

} // namespace

void Leds::start()
{
    for (const Led &led : kLeds)
        lamps_[last_word_of(led.attribute)] = {colour_of_token(led.id == DDAL_LED_GLOBAL_STATE ? "e" : "o"), {}};
}

Leds::Lamp &Leds::lamp(const std::string &name)
{
    const auto found = lamps_.find(name);
    if (found == lamps_.end())
        throw ControlError("no LED \"" + name + "\"");
    return found->second;
}

std::string Leds::shown(const Lamp &lamp) const
{
    return lamp.text.value_or(lamp.colour->text);
}

int Leds::read(const Node &node, uint64_t offset, std::span<uint8_t> out)
{
    const std::string text = shown(lamp(last_word_of(node.path))) + "\n";
    const size_t from = std::min<size_t>(offset, text.size());
    const size_t n = std::min(out.size(), text.size() - from);
    std::copy_n(text.begin() + static_cast<long>(from), n, out.begin());
    return static_cast<int>(n);
}

int Leds::write(const Node &node, uint64_t, std::span<const uint8_t> in)
{
    Lamp &one = lamp(last_word_of(node.path));
    const std::string token(in.begin(), in.end());
    tokens_ += token + "\n";
    const LedColour *colour = colour_of_token(token);
    if (one.refuses || !colour)
        return -EINVAL;
    one.colour = one.stuck ? one.stuck : colour;
    one.text.reset();
    return static_cast<int>(in.size());
}

std::string Leds::show() const
{
    std::string list;
    for (const auto &[name, one] : lamps_)
        list += name + " " + shown(one) + "\n";
    return list;
}

ControlTable Leds::commands()
{
    using Row = ControlRow<Leds>;
    const std::string led = "st_led|bh_led|rf_led|off_led";
    static const auto lamp_in = [](Leds &leds, const Given &given) -> Lamp & {
        for (auto &[name, lamp] : leds.lamps_)
            if (given.says(name))
                return lamp;
        throw ControlError("this board lacks the LED");
    };
    return {
        Row{"show", "print what each LED shows", &Leds::show},
        Row{"set " + led + " TOKEN", "let a LED show the colour of a token",
            [](Leds &leds, const Given &given) {
                lamp_in(leds, given) = {colour_of_word(given.text("TOKEN")), {}};
            }},
        Row{"text " + led + " TEXT", "let a LED report this text",
            [](Leds &leds, const Given &given) { lamp_in(leds, given).text = given.text("TEXT"); }},
        Row{"stick " + led + " [TOKEN]", "let every write lead to this colour, or to the present one",
            [](Leds &leds, const Given &given) {
                Lamp &lamp = lamp_in(leds, given);
                lamp.stuck = given.has("TOKEN") ? colour_of_word(given.text("TOKEN")) : lamp.colour;
            }},
        Row{"refuse " + led, "refuse every write",
            [](Leds &leds, const Given &given) { lamp_in(leds, given).refuses = true; }},
        Row{"normal " + led, "follow the writes again",
            [](Leds &leds, const Given &given) {
                Lamp &lamp = lamp_in(leds, given);
                lamp = {lamp.colour, {}};
            }},
        Row{"tokens", "print the tokens that were written since the last time, one a line",
            [](Leds &leds) { return std::exchange(leds.tokens_, {}); }},
    };
}

} // namespace vboard
