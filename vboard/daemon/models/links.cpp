#include "daemon/models/links.h"

#include <iostream>

#include "daemon/board.h"
#include "daemon/link_bus.h"
#include "daemon/models/interfaces.h"
#include "daemon/models/phy.h"
#include "daemon/models/switch.h"

namespace vboard {

namespace {

constexpr std::pair<const char *, LinkKind> kKinds[] = {
    {"network", LinkKind::kInterface}, {"broadcom", LinkKind::kBroadcom}, {"marvell", LinkKind::kMarvell}};

LinkKind kind_of(const std::string &word)
{
    for (const auto &[name, kind] : kKinds)
        if (word == name)
            return kind;
    throw ControlError("the services are network, broadcom and marvell");
}

bool up_or_down(const std::string &word)
{
    if (word != "up" && word != "down")
        throw ControlError("a link goes \"up\" or \"down\"");
    return word == "up";
}

} // namespace

Links::Links(Board &board) : Model(board), bus_(std::make_unique<LinkBus>(board)) {}
Links::~Links() = default;

void Links::start()
{
    board().add_environment("DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + board().private_path("bus").string());
    try {
        bus_->start();
    } catch (const std::exception &error) {
        // A board without link events is a board all the same.
        std::cerr << "no message bus: " << error.what() << std::endl;
    }
}

void Links::publish(LinkKind kind, uint32_t number, const std::string &state)
{
    bus_->set_state(kind, number, state);
}

void Links::map(const Words &words)
{
    Target target{word_at(words, 2, "switch, multiport or interface"), word_at(words, 3, "a port or name")};
    if (target.kind == "interface")
        target.dev_id = static_cast<uint32_t>(number_of(word_at(words, 4, "a dev_id")));
    else if (target.kind != "switch" && target.kind != "multiport")
        throw ControlError("a device stands for a switch port, a multiport port or an interface");
    targets_[word_at(words, 1, "a device")] = target;
}

void Links::plug(const Target &target, bool partner)
{
    if (target.kind == "switch") {
        auto *chip = board().find<Switch>();
        if (!chip)
            throw ControlError("this board has no Broadcom switch");
        chip->plug(static_cast<uint32_t>(number_of(target.name)), partner);
    } else if (target.kind == "multiport") {
        publish(LinkKind::kMarvell, static_cast<uint32_t>(number_of(target.name)), partner ? "routable" : "no-carrier");
    } else {
        auto *interfaces = board().find<Interfaces>();
        if (!interfaces || !interfaces->plug(target.name, partner))
            throw ControlError("this board has no interface " + target.name);
        if (auto *phys = board().find<PhyNodes>())
            phys->plug(target.dev_id, partner);
    }
}

std::string Links::show() const
{
    std::string text;
    for (const auto &[device, target] : targets_)
        text += device + " " + target.kind + " " + target.name + "\n";
    return text;
}

std::string Links::control(const Words &words)
{
    const std::string &verb = word_at(words, 0, "a device, map, show, state, missed, service, bus or stamp");
    if (verb == "show")
        return show();
    if (verb == "stamp")
        return std::to_string(bus_->last_change_ns()) + "\n";
    if (verb == "map") {
        map(words);
    } else if (verb == "state" || verb == "missed") {
        const LinkKind kind = kind_of(word_at(words, 1, "a service"));
        const auto number = static_cast<uint32_t>(number_of(word_at(words, 2, "a number")));
        const std::string &state = word_at(words, 3, "a state");
        verb == "state" ? publish(kind, number, state) : bus_->miss(kind, number, state);
    } else if (verb == "service") {
        const LinkKind kind = kind_of(word_at(words, 1, "a service"));
        if (word_at(words, 2, "leave or return") == "leave")
            bus_->leave(kind);
        else
            bus_->come_back(kind);
    } else if (verb == "bus") {
        const bool start = word_at(words, 1, "start or stop") == "start";
        if (start && !bus_->is_running())
            bus_->start();
        else if (!start)
            bus_->stop();
    } else {
        const auto target = targets_.find(verb);
        if (target == targets_.end())
            throw ControlError("no link \"" + verb + "\"; \"link show\" names them");
        plug(target->second, up_or_down(word_at(words, 1, "up or down")));
    }
    return {};
}

} // namespace vboard
