// Front-panel LEDs: attributes of the CPLD driver that take a token and report a text.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "daemon/model.h"
#include "platform/led_table.h"

namespace vboard {

class Leds : public Model {
public:
    using Model::Model;
    void start() override;
    int read(const Node &node, uint64_t offset, std::span<uint8_t> out) override;
    int write(const Node &node, uint64_t offset, std::span<const uint8_t> in) override;

    // A led is the last word of its path.
    static ControlTable commands();

private:
    struct Lamp {
        const ddal::platform::LedColour *colour;
        std::optional<std::string> text;                  // shown instead of the colour's
        const ddal::platform::LedColour *stuck = nullptr; // what every write leads to
        bool refuses = false;
    };
    Lamp &lamp(const std::string &name);
    std::string shown(const Lamp &lamp) const;
    std::string show() const;

    std::map<std::string, Lamp> lamps_;
    std::string tokens_; // written so far, one a line
};

} // namespace vboard
