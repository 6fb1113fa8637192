#include "daemon/models/links.h"

#include <utility>

#include "daemon/board.h"
#include "daemon/log.h"
#include "daemon/models/interfaces.h"
#include "daemon/models/link_bus.h"
#include "daemon/models/multiport.h"
#include "daemon/models/phy.h"
#include "daemon/models/switch.h"

namespace vboard {

namespace {

constexpr std::pair<const char *, LinkKind> kKinds[] = {
    {"network", LinkKind::kInterface}, {"broadcom", LinkKind::kBroadcom}, {"marvell", LinkKind::kMarvell}};

LinkKind kind_in(const Given &given)
{
    for (const auto &[name, kind] : kKinds)
        if (given.says(name))
            return kind;
    throw std::logic_error("no such kind of link");
}

} // namespace

Links::Links(Board &board) : Model(board), bus_(std::make_unique<LinkBus>(board)) {}
Links::~Links() = default;

void Links::start()
{
    board().add_environment("DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + board().private_path("bus").string());
}

bool Links::provide_bus()
{
    try {
        if (!std::exchange(is_bus_decided_, true))
            bus_->start();
    } catch (const std::exception &error) {
        // A board without link events is a board all the same.
        log_line(std::string("no message bus: ") + error.what());
    }
    return bus_->is_running();
}

void Links::publish(LinkKind kind, uint32_t number, const std::string &state)
{
    bus_->set_state(kind, number, state);
}

void Links::plug(const Target &target, bool partner)
{
    if (target.kind == "switch") {
        auto *chip = board().find<Switch>();
        if (!chip)
            throw ControlError("this board has no Broadcom switch");
        chip->plug(static_cast<uint32_t>(number_of(target.name)), partner);
    } else if (target.kind == "multiport") {
        const auto port = static_cast<uint32_t>(number_of(target.name));
        if (auto *multiport = board().find<Multiport>())
            multiport->plug(port, partner);
        publish(LinkKind::kMarvell, port, partner ? "routable" : "no-carrier");
    } else {
        auto *interfaces = board().find<Interfaces>();
        if (!interfaces || !interfaces->plug(target.name, partner))
            throw ControlError("this board has no interface " + target.name);
        if (auto *phys = board().find<PhyNodes>())
            phys->plug(target.dev_id, partner);
    }
}

bool Links::has_link(const Target &target) const
{
    if (target.kind == "switch") {
        const auto *chip = board().find<Switch>();
        return chip && chip->has_link(static_cast<uint32_t>(number_of(target.name)));
    }
    if (target.kind == "multiport")
        return bus_->state(LinkKind::kMarvell, static_cast<uint32_t>(number_of(target.name))) == "routable";
    const auto *interfaces = board().find<Interfaces>();
    return interfaces && interfaces->has_link(target.name);
}

std::string Links::show() const
{
    std::string text;
    for (const auto &[device, target] : targets_)
        text += device + " " + target.kind + " " + target.name + (has_link(target) ? " up\n" : " down\n");
    return text;
}

Links::Target &Links::target_in(const Given &given)
{
    const auto found = targets_.find(given.text("DEVICE"));
    if (found == targets_.end())
        throw ControlError("no link \"" + given.text("DEVICE") + "\"; \"link show\" names them");
    return found->second;
}

ControlTable Links::commands()
{
    using Row = ControlRow<Links>;
    return {
        Row{"show", "print each PHY device, what it stands for, and whether its link is up", &Links::show},
        Row{"DEVICE up|down", "plug or pull the cable of a PHY device",
            [](Links &links, const Given &given) { links.plug(links.target_in(given), given.says("up")); }},
        Row{"map DEVICE switch|multiport PORT", "let a PHY device stand for a port of a switch",
            [](Links &links, const Given &given) {
                links.targets_[given.text("DEVICE")] = {given.says("switch") ? "switch" : "multiport",
                                                        std::to_string(given.number("PORT"))};
            }},
        Row{"map DEVICE interface NAME DEV-ID", "let a PHY device stand for an interface",
            [](Links &links, const Given &given) {
                links.targets_[given.text("DEVICE")] = {"interface", given.text("NAME"), given.number("DEV-ID")};
            }},
        Row{"state network|broadcom|marvell NUMBER STATE", "let a service report this state of a link",
            [](Links &links, const Given &given) {
                links.publish(kind_in(given), given.number("NUMBER"), given.text("STATE"));
            }},
        Row{"missed network|broadcom|marvell NUMBER STATE",
            "change the state of a link without a signal to anybody, until its next state",
            [](Links &links, const Given &given) {
                links.bus_->miss(kind_in(given), given.number("NUMBER"), given.text("STATE"));
            }},
        Row{"service network|broadcom|marvell leave|return", "let a service leave the bus, or come back",
            [](Links &links, const Given &given) {
                links.provide_bus();
                if (given.says("leave"))
                    links.bus_->leave(kind_in(given));
                else
                    links.bus_->come_back(kind_in(given));
            }},
        Row{"bus stop|start", "stop or start the message bus",
            [](Links &links, const Given &given) {
                links.is_bus_decided_ = true;
                if (given.says("stop"))
                    links.bus_->stop();
                else if (!links.bus_->is_running())
                    links.bus_->start();
            }},
        Row{"stamp", "print when the last change was put on the bus: ns of CLOCK_MONOTONIC",
            [](Links &links) { return std::to_string(links.bus_->last_change_ns()) + "\n"; }},
    };
}

} // namespace vboard
