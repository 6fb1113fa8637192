#include "ddalctl/chart.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace ddalctl {

Scale scale_of(const std::vector<double> &values, int ticks)
{
    double low = *std::min_element(values.begin(), values.end());
    double high = *std::max_element(values.begin(), values.end());
    const double least = std::max(std::abs(high), 1.0) * 1e-3; // a constant value lies in the middle
    if (high - low < least) {
        low -= least;
        high += least;
    }
    const double rough = (high - low) / ticks;
    const double power = std::pow(10, std::floor(std::log10(rough)));
    double step = 10 * power;
    for (const double factor : {5.0, 2.0, 1.0}) {
        if (factor * power >= rough)
            step = factor * power;
    }
    return {std::floor(low / step) * step, std::ceil(high / step) * step, step};
}

std::string tick_text(double value, double step)
{
    const int digits = std::clamp(static_cast<int>(std::ceil(-std::log10(step) - 1e-9)), 0, 6);
    char text[48];
    snprintf(text, sizeof text, "%.*f", digits, std::abs(value) < step / 1000 ? 0.0 : value);
    return text;
}

} // namespace ddalctl
