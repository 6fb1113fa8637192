// The picture of ddalctl sfp watch: power and temperature of a module over time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ddalctl/chart.h"
#include "ddalctl/sfp_watch.h"

namespace ddalctl {

class SfpPlot {
public:
    // `draws`: in the terminal. `svg`: the file for write(); may be empty.
    SfpPlot(uint32_t cage, bool draws, const std::string &svg);

    bool draws() const { return draws_; }
    bool is_wanted() const { return draws_ || !svg_.empty(); }

    // Adds the measurements of a module.
    void add(double seconds, const std::vector<SfpMeasurement> &measured);
    // Draws the picture, with a text below it.
    void note(const std::string &text);

    // Writes the file, if there is one to write. Throws Failure.
    void write() const;

private:
    void add_limits();
    void thin();
    void draw();

    uint32_t cage_;
    bool draws_;
    std::string svg_;
    Picture picture_;
    std::string note_;
    size_t lines_ = 0; // drawn last
};

} // namespace ddalctl
