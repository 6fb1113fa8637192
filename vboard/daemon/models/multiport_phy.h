// A copper PHY of the external multiport switch.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace vboard {

// Nanoseconds of the board.
using BoardClock = std::function<int64_t()>;

class MultiportPhy {
public:
    explicit MultiportPhy(BoardClock clock);

    // A register of the selected page. Register 22 selects the page.
    uint16_t read(uint32_t reg);
    void write(uint32_t reg, uint16_t value);

    // A partner at the other end of the cable, which offers speeds up to `fastest` Mb/s; 0 pulls the cable.
    void plug(uint32_t fastest);
    bool has_link() const;
    uint32_t speed() const; // Mb/s of the link
    bool is_full_duplex() const;
    // Frames come back: loopback is on, and it was not switched on too early after a reset.
    bool loops() const { return loops_; }
    uint16_t page() const { return page_; }
    std::string text() const;

private:
    using Page = std::array<uint16_t, 32>;

    uint16_t copper(uint32_t reg) const;
    void write_control(uint16_t value);
    void write_copper(uint32_t reg, uint16_t value);
    void apply_reset();
    void lose_link();
    uint32_t common_mode() const; // best mode of both ends: speed, + 1 for full duplex; 0 without one
    bool has_result() const;
    uint16_t status();
    uint16_t live_status() const;
    uint16_t partner_ability() const;
    uint16_t gigabit_status() const;

    BoardClock clock_;
    std::map<uint16_t, Page> pages_;
    uint16_t page_ = 0;
    uint32_t fastest_ = 1000;
    int64_t result_at_ = 0; // end of auto-negotiation
    int64_t reset_at_ = 0;
    uint16_t crossover_ = 0; // in use; a change waits for a reset
    uint16_t loop_speed_ = 0;
    bool loops_ = false;
    bool lost_ = true; // the link was down since the last read
};

} // namespace vboard
