// ddalctl link: the state of the links of the backhaul ports, and their changes.
#include <ddal/error.h>
#include <ddal/phy.h>

#include <cerrno>
#include <chrono>
#include <memory>
#include <net/if.h>
#include <poll.h>
#include <string>

#include "ddalctl/event_source.h"
#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/interrupt.h"
#include "ddalctl/library.h"
#include "ddalctl/phy_device.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kLinkEvent = 0;
constexpr const char *kBus = "the system's message bus";

const char *state_name(bool up)
{
    return up ? "up" : "down";
}

int open_device(const std::string &name)
{
    int fd = -1;
    const int result = DDAL(ddal_phy_copper_event_open)(static_cast<uint32_t>(name[0] - '0'), kLinkEvent, &fd);
    if (result == DDAL_ERR_FAILURE)
        throw Failure(result, kOperationFailed,
                      "cannot follow link " + name +
                          ": the device is not on this board (see ddalctl phy list), or the system's message bus does "
                          "not answer")
            .at(kBus);
    require_phy(result);
    return fd;
}

int open_interface(const std::string &name)
{
    const auto open = DDAL(ddal_phy_event_register_linux_interface); // report a missing board first
    if (if_nametoindex(name.c_str()) == 0)
        throw Failure(-ENODEV, kNothingThere,
                      "LINK: network interface \"" + name +
                          "\" does not exist; give one that \"ip link\" lists, or a PHY device from 0 to 4");
    const int fd = open(name.c_str());
    if (fd < 0)
        throw Failure(DDAL_ERR_FAILURE, kOperationFailed,
                      "cannot follow " + name + ": the system's message bus does not answer")
            .at(kBus);
    return fd;
}

bool is_device(const std::string &name)
{
    return name.size() == 1 && name[0] >= '0' && name[0] < static_cast<char>('0' + kPhyDevices);
}

// An open link event descriptor of a PHY device, "3", or of a network interface, "eth0".
class OpenLink {
public:
    explicit OpenLink(const std::string &name)
        : name_(name), fd_(is_device(name) ? open_device(name) : open_interface(name))
    {
    }
    ~OpenLink() { DDAL(ddal_phy_event_unregister)(fd_); }
    OpenLink(const OpenLink &) = delete;
    OpenLink &operator=(const OpenLink &) = delete;

    int fd() const { return fd_; }

    // Also takes a pending event.
    bool is_up() const
    {
        uint16_t state = 0;
        if (DDAL(ddal_phy_event_retrieve)(fd_, &state) != 0)
            throw Failure(-EIO, kOperationFailed,
                          "the service that reports link " + name_ + " does not answer, or the message bus has stopped")
                .at(kBus);
        return state != 0;
    }

private:
    std::string name_;
    int fd_;
};

class LinkSource : public EventSource {
public:
    explicit LinkSource(uint32_t device) : device_(device), link_(std::to_string(device)), was_up_(link_.is_up()) {}

    std::string name() const override { return "link " + std::to_string(device_); }
    int descriptor() const override { return link_.fd(); }
    short condition() const override { return POLLIN; }
    std::string kind() const override { return "link"; }
    Event take() override
    {
        const bool up = link_.is_up();
        const std::string text = std::string(up == was_up_ ? "changed, now " : "") + state_name(up);
        was_up_ = up;
        return {text, [device = device_, up](Report &event) {
                    event.add("device", uint64_t{device});
                    event.add("link", state_name(up));
                }};
    }

private:
    uint32_t device_;
    OpenLink link_;
    bool was_up_; // a link can change twice between two readings
};

// Waits until the link is in that state. Returns false after the deadline, or when the user stops the command.
bool wait_for(const OpenLink &link, bool up, Clock::time_point end)
{
    while (!StopOnSignal::stopped()) {
        if (link.is_up() == up)
            return true;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        if (left.count() <= 0)
            return false;
        pollfd waiting = {link.fd(), POLLIN, 0};
        if (poll(&waiting, 1, static_cast<int>(left.count())) < 0 && errno != EINTR)
            throw failure_of(-errno);
    }
    return false;
}

std::vector<std::string> links_to_name(const std::vector<std::string> &)
{
    std::vector<std::string> names;
    for (uint32_t device = 0; device < kPhyDevices; device++)
        names.push_back(std::to_string(device));
    struct if_nameindex *const interfaces = if_nameindex();
    for (const struct if_nameindex *each = interfaces; each && each->if_name; each++)
        names.emplace_back(each->if_name);
    if_freenameindex(interfaces);
    return names;
}

constexpr Choice kStates[] = {{"down", 0}, {"up", 1}};

bool wanted_state(const Arguments &arguments)
{
    return arguments.choice("STATE", kStates) != 0;
}

void check_link_name(const Arguments &arguments)
{
    const std::string &name = arguments.text("LINK");
    if (name.empty() || name.size() >= IF_NAMESIZE ||
        (name.find_first_not_of("0123456789") == std::string::npos && !is_device(name)))
        throw WrongUse("LINK: \"" + name + "\" is neither a PHY device from 0 to 4 nor a network interface");
}

void wait_until(const std::string &name, bool up, const Arguments &arguments)
{
    const uint64_t limit = arguments.given("--timeout") ? arguments.number64("--timeout") : kLongestWait;
    const StopOnSignal stop;
    const OpenLink link(name);
    if (wait_for(link, up, Clock::now() + std::chrono::milliseconds(limit)))
        return;
    if (StopOnSignal::stopped())
        throw Failure(-EINTR, kOperationFailed, "interrupted before link " + name + " was " + state_name(up));
    throw Failure(-ETIMEDOUT, kOperationFailed,
                  "link " + name + " is still " + state_name(!up) + " after " + std::to_string(limit) + " ms");
}

// Adds the state of the link. Returns the failure if the state cannot be read.
std::unique_ptr<Failure> add_state(Report &row, uint32_t device)
{
    try {
        row.add("link", state_name(OpenLink(std::to_string(device)).is_up()));
        return nullptr;
    } catch (const Failure &failure) {
        row.add_missing("link");
        return std::make_unique<Failure>(failure);
    }
}

void add_place(Report &row, const ddal_phy_association &place)
{
    if (place.ifname[0])
        row.add("interface", place.ifname);
    else
        row.add_missing("interface");
    if (place.switch_port >= 0)
        row.add("switch-port", static_cast<uint64_t>(place.switch_port));
    else
        row.add_missing("switch-port");
}

void show_all(Report &report)
{
    std::unique_ptr<Failure> reason;
    bool told = false;
    for (uint32_t device = 0; device < kPhyDevices; device++) {
        ddal_phy_association place = {};
        if (DDAL(ddal_phy_get_association)(device, &place) != 0)
            continue; // not on this board
        Report &row = report.row("links");
        row.add("device", device);
        add_place(row, place);
        auto failure = add_state(row, device);
        told = told || !failure;
        if (failure)
            reason = std::move(failure);
    }
    if (!told)
        throw reason ? *reason : Failure(-ENODEV, kNothingThere, "the library finds no link on this board");
}

void show(const Arguments &arguments, Report &report)
{
    if (!arguments.given("LINK"))
        return show_all(report);
    check_link_name(arguments);
    report.add("link", state_name(OpenLink(arguments.text("LINK")).is_up()));
}

void wait(const Arguments &arguments, Report &report)
{
    check_link_name(arguments);
    const bool up = wanted_state(arguments);
    report.lasts("link");
    wait_until(arguments.text("LINK"), up, arguments);
    report.add("link", state_name(up));
}

void set(const Arguments &arguments, Report &)
{
    const bool up = wanted_state(arguments);
    const uint32_t device = arguments.number("DEVICE");
    require_phy(up ? DDAL(ddal_phy_copper_power_up)(device) : DDAL(ddal_phy_copper_power_down)(device));
    if (arguments.given("--timeout"))
        wait_until(std::to_string(device), up, arguments);
}

} // namespace

std::vector<EventKind> link_events()
{
    return {{"link", "change of a backhaul link", true,
             [](uint32_t device) -> std::unique_ptr<EventSource> {
                 if (device >= kPhyDevices)
                     throw WrongUse("--only: link:" + std::to_string(device) + " is not one of link:0 to link:4");
                 return std::make_unique<LinkSource>(device);
             },
             kPhyDevices}};
}

Family link_family()
{
    const Argument link = text_of("LINK", "PHY device, 0 to 4, or a network interface such as eth0", links_to_name);
    const Argument state = one_of<kStates>("STATE", "up or down");
    return {"link",
            "links of the backhaul ports (ddalctl events --only link:3 follows one)",
            {
                {"show",
                 "show whether a link is up; without LINK show all links",
                 {{link.name, link.kind, link.help, true, link.max, link.min, link.step, link.values}},
                 show},
                {"wait",
                 "wait until a link is up or down; without --timeout for at most 24 hours",
                 {link, state, kTimeout},
                 wait},
                {"set",
                 "switch the port of a PHY device off or on; with --timeout, wait until its link follows",
                 {kPhyDevice, state, kTimeout},
                 set},
            }};
}

} // namespace ddalctl
