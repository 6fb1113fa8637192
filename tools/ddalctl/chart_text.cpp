#include "ddalctl/chart.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace ddalctl {

namespace {

constexpr size_t kLabelWidth = 9;
constexpr size_t kLeastColumns = 20;
constexpr const char *kColours[] = {"\033[36m", "\033[33m", "\033[35m"}; // of the curves
constexpr const char *kLimitColour = "\033[31m";
constexpr const char *kPlain = "\033[0m";

// Braille cells: each holds 2 by 4 dots, whose bits follow U+2800.
class Canvas {
public:
    Canvas(size_t columns, size_t rows) : columns_(columns), rows_(rows), cells_(columns * rows) {}

    size_t width() const { return 2 * columns_; }
    size_t height() const { return 4 * rows_; }

    void dot(size_t x, size_t y, const char *colour)
    {
        constexpr unsigned char kBits[4][2] = {{0x01, 0x08}, {0x02, 0x10}, {0x04, 0x20}, {0x40, 0x80}};
        if (x >= width() || y >= height())
            return;
        Cell &cell = cells_[y / 4 * columns_ + x / 2];
        cell.bits |= kBits[y % 4][x % 2];
        cell.colour = colour;
    }

    void line(double x0, double y0, double x1, double y1, const char *colour)
    {
        const double steps = std::max({std::abs(x1 - x0), std::abs(y1 - y0), 1.0});
        for (double i = 0; i <= steps; i++)
            dot(static_cast<size_t>(std::lround(x0 + (x1 - x0) * i / steps)),
                static_cast<size_t>(std::lround(y0 + (y1 - y0) * i / steps)), colour);
    }

    std::string row(size_t row, bool coloured) const
    {
        std::string text;
        const char *colour = "";
        for (size_t column = 0; column < columns_; column++) {
            const Cell &cell = cells_[row * columns_ + column];
            if (coloured && cell.bits != 0 && cell.colour != colour)
                text += colour = cell.colour;
            text += cell.bits != 0 ? braille(cell.bits) : " ";
        }
        return *colour ? text + kPlain : text;
    }

private:
    struct Cell {
        unsigned char bits = 0;
        const char *colour = "";
    };

    // U+2800 to U+28FF in UTF-8.
    static std::string braille(unsigned char bits)
    {
        return {'\xe2', static_cast<char>(0xa0 | (bits >> 6)), static_cast<char>(0x80 | (bits & 0x3f))};
    }

    size_t columns_;
    size_t rows_;
    std::vector<Cell> cells_;
};

const char *colour_of_curve(size_t curve)
{
    return kColours[curve % std::size(kColours)];
}

std::string heading_of(const Chart &chart, bool coloured)
{
    std::string text = chart.title + " (" + chart.unit + ")";
    for (size_t i = 0; i < chart.curves.size(); i++) {
        char value[32];
        snprintf(value, sizeof value, " %.2f", chart.curves[i].values.back());
        text += std::string("  ") + (coloured ? colour_of_curve(i) : "") + chart.curves[i].name + value +
                (coloured ? kPlain : "");
    }
    return text + "\n";
}

void draw_curve(Canvas &canvas, const Picture &picture, const Curve &curve, const Scale &scale, const char *colour)
{
    const double length = std::max(picture.seconds.back(), 1e-9);
    const auto x = [&](size_t i) { return picture.seconds[i] / length * static_cast<double>(canvas.width() - 1); };
    const auto y = [&](size_t i) {
        return (1 - scale.share_of(curve.values[i])) * static_cast<double>(canvas.height() - 1);
    };
    for (size_t i = 0; i < curve.values.size(); i++)
        canvas.line(x(i > 0 ? i - 1 : 0), y(i > 0 ? i - 1 : 0), x(i), y(i), colour);
}

void draw_limits(Canvas &canvas, const Chart &chart, const Scale &scale)
{
    for (const Limit &limit : chart.limits) {
        const double share = scale.share_of(limit.value);
        if (share < 0 || share > 1)
            continue;
        const auto y = static_cast<size_t>(std::lround((1 - share) * static_cast<double>(canvas.height() - 1)));
        for (size_t x = 0; x < canvas.width(); x += limit.is_alarm ? 2 : 4)
            canvas.dot(x, y, kLimitColour);
    }
}

std::string draw_chart(const Picture &picture, const Chart &chart, size_t columns, size_t rows, bool coloured)
{
    std::vector<double> values;
    for (const Curve &curve : chart.curves)
        values.insert(values.end(), curve.values.begin(), curve.values.end());
    const Scale scale = scale_of(values, 3);
    Canvas canvas(columns, rows);
    draw_limits(canvas, chart, scale);
    for (size_t i = 0; i < chart.curves.size(); i++)
        draw_curve(canvas, picture, chart.curves[i], scale, colour_of_curve(i));

    std::string text = heading_of(chart, coloured);
    for (size_t row = 0; row < rows; row++) {
        const bool has_label = row == 0 || row + 1 == rows;
        const std::string label = has_label ? tick_text(row == 0 ? scale.high : scale.low, scale.step) : "";
        text += std::string(kLabelWidth - std::min(kLabelWidth, label.size()), ' ') + label + " |" +
                canvas.row(row, coloured) + "\n";
    }
    return text;
}

} // namespace

std::string draw_text(const Picture &picture, size_t columns, size_t rows, bool coloured)
{
    if (picture.seconds.empty())
        return picture.title + "\n";
    const size_t width = std::max(columns, kLabelWidth + 2 + kLeastColumns) - kLabelWidth - 3;
    std::string text = picture.title + "\n";
    for (const Chart &chart : picture.charts)
        text += draw_chart(picture, chart, width, rows, coloured);
    const std::string from = "0 s";
    const std::string to = tick_text(picture.seconds.back(), 0.1) + " s";
    const size_t gap = width > from.size() + to.size() ? width - from.size() - to.size() : 1;
    return text + std::string(kLabelWidth + 2, ' ') + from + std::string(gap, ' ') + to + "\n";
}

} // namespace ddalctl
