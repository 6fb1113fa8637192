// Charts of values over time: braille characters for a terminal, and SVG.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace ddalctl {

struct Curve {
    std::string name;
    std::vector<double> values; // one for each time of the picture
};

// A threshold of a curve.
struct Limit {
    std::string name; // "tx high alarm"
    double value;
    size_t curve;
    bool is_alarm; // else a warning
};

struct Chart {
    std::string title;
    std::string unit;
    std::vector<Curve> curves;
    std::vector<Limit> limits;
};

// Charts above each other, with one time axis.
struct Picture {
    std::string title;
    std::vector<double> seconds; // since the left end of the axis
    std::vector<Chart> charts;
};

// A range of values, and the distance of its ticks.
struct Scale {
    double low;
    double high;
    double step;

    double share_of(double value) const { return (value - low) / (high - low); } // 0 at the low end
};
// Returns a range that holds all values, with about `ticks` ticks.
Scale scale_of(const std::vector<double> &values, int ticks);
// A value of a tick, with the digits that the step requires.
std::string tick_text(double value, double step);

// Draws each chart with `rows` lines. A threshold appears where it lies between the values of the chart.
std::string draw_text(const Picture &picture, size_t columns, size_t rows, bool coloured);

// Draws one self-contained document. Each axis covers its thresholds.
std::string draw_svg(const Picture &picture);

} // namespace ddalctl
