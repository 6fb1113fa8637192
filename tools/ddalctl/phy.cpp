// ddalctl phy: the PHYs of the backhaul ports.
#include <ddal/error.h>
#include <ddal/phy.h>
#include <ddal/unit.h>

#include <cerrno>
#include <string>

#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/phy_device.h"
#include "ddalctl/phy_registers.h"
#include "ddalctl/phy_settings.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

constexpr Choice kOnOff[] = {{"off", 0}, {"on", 1}};
constexpr Choice kPauses[] = {{"off", 0}, {"symmetric", 1}, {"asymmetric", 2}};
constexpr uint32_t kHighestRegister = 31;
constexpr uint32_t kHighestPage = 0xFFFF;

struct AdvertisedMode {
    const char *name;
    uint32_t speed; // Mb/s
    ddal_phy_duplex duplex;
};
constexpr AdvertisedMode kAdvertisedModes[] = {
    {"10-half", 10, DDAL_PHY_HALF_DUPLEX},     {"10-full", 10, DDAL_PHY_FULL_DUPLEX},
    {"100-half", 100, DDAL_PHY_HALF_DUPLEX},   {"100-full", 100, DDAL_PHY_FULL_DUPLEX},
    {"1000-half", 1000, DDAL_PHY_HALF_DUPLEX}, {"1000-full", 1000, DDAL_PHY_FULL_DUPLEX},
};

void add_place(Report &report, const ddal_phy_association &place)
{
    report.add("backhaul-port", place.bh_port);
    if (place.ifname[0])
        report.add("interface", place.ifname);
    else
        report.add_missing("interface");
    if (place.switch_port >= 0)
        report.add("switch-port", static_cast<uint64_t>(place.switch_port));
    else
        report.add_missing("switch-port");
    if (place.dev_id >= 0)
        report.add("dev-id", static_cast<uint64_t>(place.dev_id));
    else
        report.add_missing("dev-id");
}

void list(const Arguments &, Report &report)
{
    bool any = false;
    for (uint32_t device = 0; device < kPhyDevices; device++) {
        ddal_phy_association place = {};
        if (DDAL(ddal_phy_get_association)(device, &place) != 0)
            continue; // not on this board
        any = true;
        Report &row = report.row("devices");
        row.add("device", device);
        add_place(row, place);
    }
    if (!any)
        throw Failure(-ENODEV, kNothingThere, "the library finds no PHY device on this board");
}

void add_link(Report &report, uint32_t device)
{
    ddal_phy_copper_status status = {};
    if (DDAL(ddal_phy_copper_get_status)(device, &status) != 0) {
        for (const char *name : {"link", "link-speed", "link-duplex"})
            report.add_missing(name);
        return;
    }
    report.add("link", status.link ? "up" : "down");
    if (status.speed == DDAL_PHY_UNKNOWN || !status.link)
        report.add_missing("link-speed");
    else
        report.add("link-speed", uint64_t{status.speed}, std::to_string(status.speed) + " Mb/s");
    if (status.duplex == DDAL_PHY_UNKNOWN || !status.link)
        report.add_missing("link-duplex");
    else
        report.add("link-duplex", status.duplex == DDAL_PHY_FULL_DUPLEX ? "full" : "half");
}

void add_setting(Report &report, const PhySetting &setting, uint32_t value)
{
    if (setting.is_number)
        report.add(setting.name, uint64_t{value});
    else if (setting.is_switch)
        report.add(setting.name, value != 0, word_of(setting, value));
    else
        report.add(setting.name, word_of(setting, value));
}

void add_setting_if_there(Report &report, const PhySetting &setting, uint32_t device)
{
    uint32_t value = 0;
    if (setting.get(device, &value) == 0)
        add_setting(report, setting, value);
    else
        report.add_missing(setting.name);
}

void show(const Arguments &arguments, Report &report)
{
    const uint32_t device = arguments.number("DEVICE");
    ddal_phy_association place = {};
    require_phy(DDAL(ddal_phy_get_association)(device, &place));
    add_place(report, place);
    add_link(report, device);
    for (const PhySetting &setting : phy_settings()) {
        if (setting.is_passive)
            add_setting_if_there(report, setting, device);
    }
}

void get(const Arguments &arguments, Report &report)
{
    const PhySetting &setting = phy_setting_named(arguments.text("SETTING"));
    uint32_t value = 0;
    require_phy(setting.get(arguments.number("DEVICE"), &value));
    add_setting(report, setting, value);
}

void set(const Arguments &arguments, Report &)
{
    const PhySetting &setting = phy_setting_named(arguments.text("SETTING"));
    if (!setting.set)
        throw WrongUse(std::string("SETTING: ") + setting.name + " can only be read");
    const uint32_t value = arguments.choice("VALUE", setting.values);
    require_phy(setting.set(arguments.number("DEVICE"), value));
}

void advertised(const Arguments &arguments, Report &report)
{
    const uint32_t device = arguments.number("DEVICE");
    for (const AdvertisedMode &mode : kAdvertisedModes) {
        uint16_t enabled = 0;
        require_phy(DDAL(ddal_phy_copper_get_config_advert)(device, mode.speed, mode.duplex, &enabled));
        report.add(mode.name, enabled != 0, enabled ? "on" : "off");
    }
    uint16_t pause = 0;
    uint16_t asymmetric = 0;
    if (DDAL(ddal_phy_copper_get_config_advert_pause_frames)(device, &pause, &asymmetric) == 0)
        report.add("pause", pause ? "symmetric" : asymmetric ? "asymmetric" : "off");
    else
        report.add_missing("pause"); // a copper port of the switch shows it in its registers only
}

void advertise(const Arguments &arguments, Report &)
{
    const std::string &name = arguments.text("MODE");
    const uint32_t state = arguments.choice("STATE", kOnOff);
    for (const AdvertisedMode &mode : kAdvertisedModes) {
        if (name == mode.name)
            return require_phy(
                DDAL(ddal_phy_copper_set_config_advert)(arguments.number("DEVICE"), mode.speed, mode.duplex, state));
    }
    throw WrongUse("MODE: \"" + name + "\" is not one of 10-half, 10-full, 100-half, 100-full, 1000-half, 1000-full");
}

void advertise_pause(const Arguments &arguments, Report &)
{
    const uint32_t pause = arguments.choice("PAUSE", kPauses);
    require_phy(
        DDAL(ddal_phy_copper_set_config_advert_pause_frames)(arguments.number("DEVICE"), pause == 1, pause == 2));
}

void power(const Arguments &arguments, Report &)
{
    const bool on = arguments.choice("STATE", kOnOff) != 0;
    const uint32_t device = arguments.number("DEVICE");
    require_phy(on ? DDAL(ddal_phy_copper_power_up)(device) : DDAL(ddal_phy_copper_power_down)(device));
}

void reset(const Arguments &arguments, Report &)
{
    require_phy(DDAL(ddal_phy_copper_reset)(arguments.number("DEVICE")));
}

void restart(const Arguments &arguments, Report &)
{
    require_phy(DDAL(ddal_phy_copper_restart_autoneg)(arguments.number("DEVICE")));
}

uint32_t page_of(const Arguments &arguments)
{
    if (arguments.given("--page") && DDAL(ddal_unit_get_board)() == DDAL_BOARD_TYPE_MBO)
        throw WrongUse("--page: the MBO board reads only the page that the PHY has selected");
    return arguments.number_or("--page", DDAL_PHY_PAGE_STANDARD);
}

void read(const Arguments &arguments, Report &report)
{
    uint16_t value = 0;
    const uint32_t page = page_of(arguments);
    require_phy(DDAL(ddal_phy_read)(arguments.number("DEVICE"), arguments.number("REGISTER"), page, &value));
    report.add_hex("value", value, 4);
    const std::string name = page == DDAL_PHY_PAGE_STANDARD ? phy_register_name(arguments.number("REGISTER")) : "";
    if (name.empty())
        return;
    const std::vector<std::string> bits = phy_register_bits(arguments.number("REGISTER"), value);
    std::string list;
    for (const std::string &bit : bits)
        list += (list.empty() ? "" : ", ") + bit;
    report.add("register", name);
    report.add("bits", bits, list.empty() ? "-" : list);
}

void write(const Arguments &arguments, Report &)
{
    const uint32_t page = page_of(arguments);
    require_phy(DDAL(ddal_phy_write)(arguments.number("DEVICE"), arguments.number("REGISTER"), page,
                                     static_cast<uint16_t>(arguments.number("VALUE"))));
}

std::vector<std::string> names_of_settings(const std::vector<std::string> &)
{
    std::vector<std::string> names;
    for (const PhySetting &setting : phy_settings())
        names.emplace_back(setting.name);
    return names;
}

// The words for the setting before them: DEVICE SETTING VALUE.
std::vector<std::string> values_of_setting(const std::vector<std::string> &words)
{
    for (const PhySetting &setting : phy_settings()) {
        if (words.size() > 1 && words[1] == setting.name && setting.set)
            return words_of(setting.values);
    }
    return {};
}

std::vector<std::string> names_of_modes(const std::vector<std::string> &)
{
    std::vector<std::string> names;
    for (const AdvertisedMode &mode : kAdvertisedModes)
        names.emplace_back(mode.name);
    return names;
}

} // namespace

void require_phy(int result)
{
    if (result == 0)
        return;
    const Failure failure = failure_of(result);
    if (result == -ENOSYS)
        throw Failure(result, failure.status(),
                      "this board, or the PHY of this device, does not support it; ddalctl phy list shows the PHYs");
    if (result == -ENODEV)
        throw Failure(result, failure.status(), "no such PHY device on this board; see ddalctl phy list");
    if (result == DDAL_ERR_FAILURE)
        throw Failure(result, failure.status(), "the PHY, its driver or its switch refused");
    throw failure_of(result);
}

Family phy_family()
{
    static const std::string setting_help = names_of_phy_settings();
    const Argument setting = text_of("SETTING", setting_help.c_str(), names_of_settings);
    const Argument reg = {"REGISTER", Kind::number, "register, 0 to 31", false, kHighestRegister};
    const Argument page = {"--page", Kind::number, "page of the PHY (default 0); not on the MBO board", true,
                           kHighestPage};
    const Argument state = one_of<kOnOff>("STATE", "on or off");
    return {
        "phy",
        "PHYs of the backhaul ports",
        {
            {"list", "list the PHY devices with interface, backhaul port and port of the switch", {}, list},
            {"show", "show the place, the link and the settings of a PHY device", {kPhyDevice}, show},
            {"get", "show one setting", {kPhyDevice, setting}, get},
            {"set",
             "change one setting",
             {kPhyDevice, setting,
              text_of("VALUE", "a word or number of that setting; a wrong one prints the list", values_of_setting)},
             set},
            {"advertised", "show the modes that the PHY offers its partner", {kPhyDevice}, advertised},
            {"advertise",
             "offer the partner a mode, or withdraw the offer",
             {kPhyDevice,
              text_of("MODE", "10-half, 10-full, 100-half, 100-full, 1000-half or 1000-full", names_of_modes), state},
             advertise},
            {"advertise-pause",
             "offer the partner pause frames, or withdraw the offer",
             {kPhyDevice, one_of<kPauses>("PAUSE", "off, symmetric or asymmetric")},
             advertise_pause},
            {"power", "power the PHY up, or its network interface and then the PHY down", {kPhyDevice, state}, power},
            {"reset", "reset the PHY", {kPhyDevice}, reset},
            {"restart", "restart auto-negotiation", {kPhyDevice}, restart},
            {"read", "read a register of the PHY", {kPhyDevice, reg, page}, read},
            {"write",
             "write a register of the PHY",
             {kPhyDevice, reg, {"VALUE", Kind::number, "16-bit value", false, UINT16_MAX}, page},
             write},
        }};
}

} // namespace ddalctl
