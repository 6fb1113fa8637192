// ddalctl doctor: what the library needs from this board, and what is missing. Works without the library.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <set>
#include <unistd.h>

#include <ddal/unit.h>

#include "ddalctl/doctor/files.h"
#include "ddalctl/doctor/needs.h"
#include "ddalctl/doctor/services.h"
#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/report.h"
#include "ddalctl/terminal.h"
#include "identity/boards.h"
#include "platform/frame_driver.h"

namespace ddalctl {

namespace {

using namespace doctor;

constexpr size_t kCellSize = 4;

// Cells that decide what a board needs.
constexpr const char *kTypeCell = "/board-identity/board-type";
constexpr const char *kPortCell = "/user-defined-a/backhaul-3-type";
constexpr uint32_t kPortsAreSwapped = 0x60; // of backhaul port 3, without the bit below
constexpr uint32_t kIgnoredBit = 0x10;

struct Colour {
    const char *begin;
    const char *end;
};

struct LevelRow {
    const char *name;
    const char *title;
    Colour colour;
};

// By Level.
constexpr LevelRow kLevels[] = {
    {"fatal", "FATAL", {"\033[1;31m", "\033[0m"}},
    {"error", "ERROR", {"\033[31m", "\033[0m"}},
    {"warning", "WARNING", {"\033[33m", "\033[0m"}},
};

struct KindRow {
    const char *name;
    const char *next;
};

// By NeedKind: its name, and the next step unless the need or the problem has another.
constexpr KindRow kKinds[] = {
    {"node", "load the kernel driver that makes the node; dmesg tells why it did not"},
    {"attribute", "load the kernel driver that makes the attribute; dmesg tells why it did not"},
    {"property", "add it to the device tree"},
    {"file", "install it with the board's root file system"},
    {"folder", "mkdir -p makes it, if its file system is mounted"},
    {"program", "install the program"},
    {"made", "make its folder with mkdir -p, if its file system is mounted"},
    {"optional", "correct or remove it"},
    {"socket", "start the service"},
    {"port", "start the service"},
    {"bus", "start the service"},
    {"library", "install the library"},
    {"frame", "load the frame driver"},
};

enum class State {
    examined,
    not_needed,   // on this type of board
    not_examined, // because it depends on something that is missing
};

constexpr const char *kStates[] = {"ok", "not needed", "not examined"}; // by State, without a problem

struct Examined {
    const Need *need;
    State state;
    std::vector<Problem> problems;
};

const char *path_that_ends(const char *end)
{
    const auto all = needs();
    const auto need = std::find_if(all.begin(), all.end(),
                                   [=](const Need &each) { return std::string_view(each.path).ends_with(end); });
    return need != all.end() ? need->path : "";
}

bool read_cell(const char *end, uint32_t *value)
{
    const std::string bytes = bytes_of(path_that_ends(end));
    *value = 0;
    for (const char c : bytes)
        *value = *value << 8 | static_cast<uint8_t>(c);
    return bytes.size() == kCellSize;
}

// Reports whether this machine has a device tree of the family or the frame driver's node.
bool is_board()
{
    return access(path_that_ends(kTypeCell), F_OK) == 0 || access(ddal::platform::kFrameNode, F_OK) == 0;
}

// Returns the type of the board, or 0.
int board_type()
{
    uint32_t cell = 0;
    return read_cell(kTypeCell, &cell) && cell < DDAL_BOARD_TYPE_MBO ? static_cast<int>(cell) + 1 : 0;
}

Circumstances circumstances_of(int type)
{
    if (type == 0)
        return {};
    const ddal::identity::Board &board = ddal::identity::board_of_type(type);
    uint32_t port = 0;
    read_cell(kPortCell, &port);
    const bool swapped = !board.broadcom_switch && (port & ~kIgnoredBit) == kPortsAreSwapped;
    const bool direct = board.phys && !board.broadcom_switch;
    return {
        .known = true,
        .phys = board.phys,
        .direct_phys = direct,
        .one_bus = direct && !board.two_mdio_buses,
        .two_buses = direct && board.two_mdio_buses,
        .broadcom_switch = board.broadcom_switch,
        .no_switch = !board.broadcom_switch,
        .sfp_on_i2c = board.sfp_on_i2c,
        .sfp_on_cpld = !board.sfp_on_i2c,
        .four_ports = board.has_eth2,
        .three_ports = !board.has_eth2,
        .straight_ports = !board.has_eth2 && !swapped,
        .swapped_ports = board.has_eth2 || swapped,
    };
}

std::vector<Problem> problems_of(const Need &need)
{
    switch (need.kind) {
    case NeedKind::socket: return examine_socket(need);
    case NeedKind::port: return examine_port(need);
    case NeedKind::bus: return examine_bus(need);
    case NeedKind::library: return examine_library(need);
    case NeedKind::frame: return examine_frame(need);
    default: return examine_files(need);
    }
}

// Without the frame driver the library only repeats the frame driver's problem. An unknown board type decides nothing.
State state_of(const Need &need, const Circumstances &circumstances, bool starts)
{
    if (need.kind == NeedKind::library && !starts)
        return State::not_examined;
    if (circumstances.*need.when)
        return State::examined;
    return circumstances.known ? State::not_needed : State::not_examined;
}

// `only_start` leaves all but the frame driver out.
std::vector<Examined> examine(const std::set<std::string> &families, const Circumstances &circumstances,
                              bool only_start)
{
    std::vector<Examined> all;
    bool starts = true;
    for (const Need &need : needs()) {
        if (!families.empty() && !families.contains(need.family))
            continue;
        if (only_start && need.kind != NeedKind::frame)
            continue;
        all.push_back({&need, state_of(need, circumstances, starts), {}});
        if (all.back().state == State::examined)
            all.back().problems = problems_of(need);
        if (need.kind == NeedKind::frame)
            starts = all.back().problems.empty();
    }
    return all;
}

std::set<std::string> families_given(const Arguments &arguments)
{
    std::set<std::string> known;
    for (const Need &need : needs())
        known.insert(need.family);
    std::set<std::string> given;
    for (std::string word : arguments.words("FAMILY")) {
        std::replace(word.begin(), word.end(), '-', '_');
        if (!known.contains(word)) {
            std::string words;
            for (const std::string &each : known)
                words += (words.empty() ? "" : ", ") + each;
            throw WrongUse("FAMILY: \"" + word + "\" is not one of " + words);
        }
        given.insert(word);
    }
    return given;
}

std::string next_of(const Need &need, const Problem &problem)
{
    if (!problem.next.empty())
        return problem.next;
    return *need.next ? need.next : kKinds[static_cast<int>(need.kind)].next;
}

std::string phrase_of(const Problem &problem)
{
    return problem.what + (problem.detail.empty() ? "" : ": " + problem.detail);
}

// The results as lines for people.
class Page {
public:
    Page() { coloured_ = has_colours(); }

    void print(const Examined &examined, bool all)
    {
        const Need &need = *examined.need;
        if (examined.problems.empty()) {
            const bool ok = examined.state == State::examined;
            if (all)
                line(need, ok ? "ok" : "-", {"\033[32m", "\033[0m"},
                     need.path + (ok ? "" : std::string(": ") + kStates[static_cast<int>(examined.state)]));
            return;
        }
        const LevelRow &level = kLevels[static_cast<int>(need.level)];
        for (const Problem &problem : examined.problems) {
            line(need, level.title, level.colour, problem.path + ": " + phrase_of(problem));
            printf("           fails without it: %s\n           next: %s\n", need.effect,
                   next_of(need, problem).c_str());
        }
    }

private:
    void line(const Need &need, const char *word, Colour colour, const std::string &text)
    {
        if (family_ != need.family)
            printf("%s\n", need.family);
        family_ = need.family;
        printf("  %s%-7s%s  %s\n", coloured_ ? colour.begin : "", word, coloured_ ? colour.end : "", text.c_str());
    }

    bool coloured_ = false;
    std::string family_;
};

void add_row(Report &report, const Examined &examined, const Problem *problem)
{
    const Need &need = *examined.need;
    const auto text_or_null = [](const std::string &text) {
        return text.empty() ? Report::Value(nullptr) : Report::Value(text);
    };
    Report &row = report.row("needs");
    row.add("family", need.family);
    row.add("kind", kKinds[static_cast<int>(need.kind)].name);
    row.add("path", problem ? problem->path : need.path);
    row.add("level", kLevels[static_cast<int>(need.level)].name);
    row.add("state", problem ? "problem" : kStates[static_cast<int>(examined.state)]);
    row.add("problem", text_or_null(problem ? problem->what : ""), "");
    row.add("detail", text_or_null(problem ? problem->detail : ""), "");
    row.add("fails-without", need.effect);
    row.add("next", text_or_null(problem ? next_of(need, *problem) : ""), "");
}

void add_rows(Report &report, const Examined &examined)
{
    for (const Problem &problem : examined.problems)
        add_row(report, examined, &problem);
    if (examined.problems.empty())
        add_row(report, examined, nullptr);
}

std::string summary_of(int type, size_t count, const std::array<uint64_t, std::size(kLevels)> &problems)
{
    std::string text = type ? "board type " + std::to_string(type) : "board type unknown";
    text += ", " + std::to_string(count) + " needs: ";
    std::string found;
    for (size_t i = 0; i < problems.size(); ++i) {
        if (problems[i] > 0)
            found += (found.empty() ? "" : ", ") + std::to_string(problems[i]) + " " + kLevels[i].name;
    }
    return text + (found.empty() ? "no problem" : found);
}

void run_doctor(const Arguments &arguments, Report &report)
{
    const std::set<std::string> families = families_given(arguments);
    const int type = board_type();
    // On another machine everything is missing: only the first of it helps.
    const bool elsewhere = !is_board() && families.empty() && !arguments.given("--all");
    const std::vector<Examined> all = examine(families, circumstances_of(type), elsewhere);
    std::array<uint64_t, std::size(kLevels)> problems{};
    Page page;
    for (const Examined &each : all) {
        problems[static_cast<size_t>(each.need->level)] += each.problems.size();
        if (!report.json())
            page.print(each, !families.empty() || arguments.given("--all"));
    }
    const bool healthy =
        std::all_of(all.begin(), all.end(), [](const Examined &each) { return each.problems.empty(); });
    report.set_status(healthy ? kDone : kOperationFailed);
    report.line(elsewhere ? "this machine is not a board; --all checks the rest"
                          : summary_of(type, all.size(), problems));
    if (!report.json())
        return;
    report.add("board-type", type ? Report::Value(static_cast<uint64_t>(type)) : Report::Value(nullptr), "");
    report.add_flag("healthy", healthy);
    for (size_t i = 0; i < problems.size(); ++i)
        report.add(kLevels[i].name, problems[i]);
    for (const Examined &each : all)
        add_rows(report, each);
}

std::vector<std::string> families_to_name(const std::vector<std::string> &)
{
    std::set<std::string> families;
    for (const Need &need : needs())
        families.insert(need.family);
    return {families.begin(), families.end()};
}

} // namespace

Family doctor_family()
{
    return {"doctor",
            "what the library needs from this board, and what is missing",
            {{"",
              "check nodes, attributes, properties, files, programs and services; change nothing",
              {{"FAMILY", Kind::words, "only these families (as the guide for a real board names them)", true,
                UINT32_MAX, 0, 1, families_to_name},
               {"--all", Kind::flag, "list what is there as well"}},
              run_doctor}}};
}

} // namespace ddalctl
