#include "ddalctl/sfp_plot.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <fstream>

#include "ddalctl/failure.h"
#include "ddalctl/sfp_thresholds.h"
#include "ddalctl/terminal.h"

namespace ddalctl {

namespace {

constexpr double kDarkness = -40; // dBm, for a power of 0
constexpr double kBrightest = 60;
constexpr size_t kMostSamples = 20'000;
constexpr size_t kFewestRows = 4;
constexpr size_t kMostRows = 12;

// The place of a curve: its chart, and the quantity in the order of sfp_measure().
struct CurveRow {
    size_t chart;
    const char *name;
    size_t quantity;
};
constexpr CurveRow kCurves[] = {{0, "tx", 3}, {0, "rx", 4}, {1, "temperature", 0}};

double dbm(double milliwatts)
{
    return milliwatts > 0 ? std::clamp(10 * std::log10(milliwatts), kDarkness, kBrightest) : kDarkness;
}

double value_in_chart(const CurveRow &row, double value)
{
    return row.chart == 0 ? dbm(value) : value;
}

template <typename Value>
void drop_every_second(std::vector<Value> &values)
{
    for (size_t i = 0; 2 * i < values.size(); i++)
        values[i] = values[2 * i];
    values.resize((values.size() + 1) / 2);
}

} // namespace

SfpPlot::SfpPlot(uint32_t cage, bool draws, const std::string &svg) : cage_(cage), draws_(draws), svg_(svg)
{
    picture_.title = "SFP cage " + std::to_string(cage - DDAL_SFP_1 + 1);
    picture_.charts = {{"optical power", "dBm", {}, {}}, {"temperature", "\u00b0C", {}, {}}};
    for (const CurveRow &row : kCurves)
        picture_.charts[row.chart].curves.push_back({row.name, {}});
}

void SfpPlot::add_limits()
{
    const std::vector<SfpThresholds> thresholds = sfp_thresholds(cage_, sfp_calibration(cage_));
    for (const CurveRow &row : kCurves) {
        Chart &chart = picture_.charts[row.chart];
        const SfpThresholds &of_row = thresholds[row.quantity];
        const size_t curve = row.quantity == 4 ? 1 : 0;
        const std::string name = row.chart == 0 ? std::string(row.name) + " " : "";
        chart.limits.push_back({name + "high alarm", value_in_chart(row, of_row.high_alarm), curve, true});
        chart.limits.push_back({name + "low alarm", value_in_chart(row, of_row.low_alarm), curve, true});
        chart.limits.push_back({name + "high warning", value_in_chart(row, of_row.high_warning), curve, false});
        chart.limits.push_back({name + "low warning", value_in_chart(row, of_row.low_warning), curve, false});
    }
}

void SfpPlot::add(double seconds, const std::vector<SfpMeasurement> &measured)
{
    if (picture_.seconds.empty())
        add_limits();
    if (picture_.seconds.size() >= kMostSamples)
        thin();
    picture_.seconds.push_back(seconds);
    for (const CurveRow &row : kCurves) {
        const size_t curve = row.quantity == 4 ? 1 : 0;
        picture_.charts[row.chart].curves[curve].values.push_back(value_in_chart(row, measured[row.quantity].value));
    }
}

void SfpPlot::note(const std::string &text)
{
    note_ = text;
    draw();
}

// A watch of days must not fill the memory.
void SfpPlot::thin()
{
    drop_every_second(picture_.seconds);
    for (Chart &chart : picture_.charts) {
        for (Curve &curve : chart.curves)
            drop_every_second(curve.values);
    }
}

void SfpPlot::draw()
{
    if (!draws_)
        return;
    const TerminalSize size = terminal_size();
    const size_t rows = std::clamp(size.rows > 6 ? (size.rows - 6) / 2 : 0, kFewestRows, kMostRows);
    const std::string text =
        draw_text(picture_, size.columns, rows, has_colours()) + note_.substr(0, size.columns - 1) + "\n";
    std::string out = lines_ > 0 ? "\033[" + std::to_string(lines_) + "A" : "";
    for (const char c : text)
        out += c == '\n' ? std::string("\033[K\n") : std::string(1, c);
    fputs((out + "\033[J").c_str(), stdout);
    fflush(stdout);
    lines_ = static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

void SfpPlot::write() const
{
    if (svg_.empty())
        return;
    if (picture_.seconds.empty())
        throw Failure(-ENODATA, kOperationFailed, "there is no measurement to draw in " + svg_);
    errno = 0;
    std::ofstream file(svg_);
    file << draw_svg(picture_);
    file.close();
    if (!file)
        throw Failure(errno != 0 ? -errno : -EIO, kOperationFailed, "cannot write " + svg_, svg_.c_str());
}

} // namespace ddalctl
