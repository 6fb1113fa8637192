#include "ddalctl/chart.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace ddalctl {

namespace {

constexpr const char *kNamespace = "http:"
                                   "//www.w3.org/2000/svg"; // names the format; nothing loads it
constexpr double kWidth = 960;
constexpr double kLeft = 70;
constexpr double kRight = 190; // for the names of the thresholds
constexpr double kTop = 60;
constexpr double kChartHeight = 240;
constexpr double kChartGap = 70;
constexpr double kPlotWidth = kWidth - kLeft - kRight;
constexpr double kLabelHeight = 12;
constexpr const char *kColours[] = {"#0b6fa4", "#c2570c", "#6b3fa0"}; // of the curves

[[gnu::format(printf, 1, 2)]] std::string format(const char *form, ...)
{
    va_list arguments;
    va_start(arguments, form);
    char text[512];
    vsnprintf(text, sizeof text, form, arguments);
    va_end(arguments);
    return text;
}

std::string escaped(const std::string &text)
{
    std::string safe;
    for (const char c : text)
        safe += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
    return safe;
}

std::string label(double x, double y, const char *anchor, const std::string &text, const char *colour = "#222")
{
    return format("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"%s\" fill=\"%s\">", x, y, anchor, colour) + escaped(text) +
           "</text>\n";
}

std::string line(double x0, double y0, double x1, double y1, const char *style)
{
    return format("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" %s/>\n", x0, y0, x1, y1, style);
}

const char *colour_of_curve(size_t curve)
{
    return kColours[curve % std::size(kColours)];
}

// The place of a chart in the picture.
struct Frame {
    double top;
    Scale time;
    Scale values;

    double x(double seconds) const { return kLeft + time.share_of(seconds) * kPlotWidth; }
    double y(double value) const { return top + (1 - values.share_of(value)) * kChartHeight; }
};

std::string axes_of(const Frame &frame, const Chart &chart, bool is_last)
{
    constexpr const char *kGrid = "stroke=\"#ddd\"";
    const double bottom = frame.top + kChartHeight;
    std::string svg;
    for (double value = frame.values.low; value <= frame.values.high + frame.values.step / 2;
         value += frame.values.step) {
        svg += line(kLeft, frame.y(value), kLeft + kPlotWidth, frame.y(value), kGrid);
        svg += label(kLeft - 8, frame.y(value) + 4, "end", tick_text(value, frame.values.step));
    }
    for (double second = frame.time.low; second <= frame.time.high; second += frame.time.step) {
        svg += line(frame.x(second), frame.top, frame.x(second), bottom, kGrid);
        svg += label(frame.x(second), bottom + 16, "middle", tick_text(second, frame.time.step));
    }
    svg += format("<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" fill=\"none\" stroke=\"#222\"/>\n", kLeft,
                  frame.top, kPlotWidth, kChartHeight);
    svg += label(kLeft, frame.top - 10, "start", chart.title + " (" + chart.unit + ")");
    return is_last ? svg + label(kLeft + kPlotWidth / 2, bottom + 34, "middle", "time (s)") : svg;
}

std::string legend_of(const Frame &frame, const Chart &chart)
{
    constexpr double kEntryWidth = 110;
    std::string svg;
    double x = kLeft + kPlotWidth - kEntryWidth * static_cast<double>(chart.curves.size());
    for (size_t i = 0; i < chart.curves.size(); i++, x += kEntryWidth) {
        const std::string style = format("stroke=\"%s\" stroke-width=\"2\"", colour_of_curve(i));
        svg += line(x, frame.top - 14, x + 24, frame.top - 14, style.c_str());
        svg += label(x + 30, frame.top - 10, "start", chart.curves[i].name);
    }
    return svg;
}

// Draws the thresholds. Their names stand at the right, moved down where they would overlap.
std::string limits_of(const Frame &frame, std::vector<Limit> limits, const std::string &unit)
{
    std::sort(limits.begin(), limits.end(), [](const Limit &a, const Limit &b) { return a.value > b.value; });
    std::string svg;
    double lowest = 0;
    for (const Limit &limit : limits) {
        const char *colour = colour_of_curve(limit.curve);
        const double y = frame.y(limit.value);
        const std::string style =
            format("stroke=\"%s\" stroke-dasharray=\"%s\"", colour, limit.is_alarm ? "8 3" : "2 4");
        svg += line(kLeft, y, kLeft + kPlotWidth, y, style.c_str());
        lowest = std::max(y + 4, lowest + kLabelHeight);
        svg += label(kLeft + kPlotWidth + 6, lowest, "start",
                     limit.name + " " + tick_text(limit.value, 0.01) + " " + unit, colour);
    }
    return svg;
}

std::string curve_of(const Frame &frame, const std::vector<double> &seconds, const Curve &curve, const char *colour)
{
    std::string points;
    for (size_t i = 0; i < seconds.size(); i++)
        points += format("%s%.1f,%.1f", i > 0 ? " " : "", frame.x(seconds[i]), frame.y(curve.values[i]));
    return "<polyline fill=\"none\" stroke=\"" + std::string(colour) + "\" stroke-width=\"2\" points=\"" + points +
           "\"/>\n";
}

std::string chart_of(const Picture &picture, size_t index)
{
    const Chart &chart = picture.charts[index];
    std::vector<double> values;
    for (const Curve &curve : chart.curves)
        values.insert(values.end(), curve.values.begin(), curve.values.end());
    for (const Limit &limit : chart.limits)
        values.push_back(limit.value);
    const Scale seconds = scale_of(picture.seconds, 8);
    const Frame frame = {kTop + static_cast<double>(index) * (kChartHeight + kChartGap),
                         {0, std::max(picture.seconds.back(), 1e-3), seconds.step},
                         scale_of(values, 6)};
    std::string svg = axes_of(frame, chart, index + 1 == picture.charts.size());
    svg += limits_of(frame, chart.limits, chart.unit) + legend_of(frame, chart);
    for (size_t i = 0; i < chart.curves.size(); i++)
        svg += curve_of(frame, picture.seconds, chart.curves[i], colour_of_curve(i));
    return svg;
}

} // namespace

std::string draw_svg(const Picture &picture)
{
    const double height = kTop + static_cast<double>(picture.charts.size()) * (kChartHeight + kChartGap);
    std::string svg = format("<svg xmlns=\"%s\" width=\"%.0f\" height=\"%.0f\" viewBox=\"0 0 %.0f %.0f\" "
                             "font-family=\"sans-serif\" font-size=\"12\">\n",
                             kNamespace, kWidth, height, kWidth, height);
    svg += "<title>" + escaped(picture.title) + "</title>\n<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n";
    svg += label(kLeft, 24, "start", picture.title);
    for (size_t i = 0; i < picture.charts.size(); i++)
        svg += chart_of(picture, i);
    return svg + "</svg>\n";
}

} // namespace ddalctl
