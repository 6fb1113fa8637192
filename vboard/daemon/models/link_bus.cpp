#include "daemon/models/link_bus.h"

#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <systemd/sd-bus.h>

#include "daemon/board.h"

namespace vboard {

namespace {

struct Service {
    LinkKind kind;
    const char *name;
    const char *interface;
    const char *folder;
    uint32_t first; // number of its first link
    uint32_t last;
};
constexpr Service kServices[] = {
    {LinkKind::kInterface, "org.freedesktop.network1", "org.freedesktop.network1.Link",
     "/org/freedesktop/network1/link", 1, 5},
    {LinkKind::kBroadcom, "com.broadcom.switch1", "com.broadcom.switch1.Link", "/com/broadcom/switch1/link", 1, 29},
    {LinkKind::kMarvell, "com.marvell.switch1", "com.marvell.switch1.Link", "/com/marvell/switch1/link", 1, 6},
};

constexpr const char *kProperty = "OperationalState";
constexpr const char *kInitialState = "routable";
constexpr int kStartLimitMs = 10'000;

const Service &service_of(LinkKind kind)
{
    for (const Service &service : kServices)
        if (service.kind == kind)
            return service;
    throw std::logic_error("no such kind of link");
}

// Escapes the first digit of a number in a path element: 14 becomes "_314".
std::string path_of(const Service &service, uint32_t number)
{
    return std::string(service.folder) + "/_3" + std::to_string(number);
}

void check(int result, const char *what)
{
    if (result < 0)
        throw std::system_error(-result, std::generic_category(), what);
}

int find_object(sd_bus *, const char *path, const char *, void *user_data, void **found, sd_bus_error *)
{
    *found = user_data;
    return static_cast<LinkStates *>(user_data)->told.contains(path);
}

int get_state(sd_bus *bus, const char *path, const char *, const char *, sd_bus_message *reply, void *user_data,
              sd_bus_error *)
{
    const auto *const states = static_cast<LinkStates *>(user_data);
    sd_bus_message *const request = sd_bus_get_current_message(bus);
    const auto missed = states->missed.find(path);
    const bool alone = request && sd_bus_message_is_method_call(request, nullptr, "Get") > 0;
    const std::string &state = alone && missed != states->missed.end() ? missed->second : states->told.at(path);
    return sd_bus_message_append(reply, "s", state.c_str());
}

const sd_bus_vtable kLinkTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("OperationalState", "s", get_state, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_VTABLE_END,
};

int64_t now_ns()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

} // namespace

LinkBus::LinkBus(Board &board) : board_(board), path_(board.private_path("bus"))
{
    for (const Service &service : kServices)
        for (uint32_t number = service.first; number <= service.last; ++number)
            states_.told[path_of(service, number)] = kInitialState;
}

LinkBus::~LinkBus()
{
    stop();
}

void LinkBus::start()
{
    start_daemon();
    connect();
    add_services();
}

void LinkBus::start_daemon()
{
    const std::string configuration = board_.private_path("bus.conf");
    std::ofstream(configuration) << "<busconfig>\n"
                                 << "  <listen>unix:path=" << path_ << "</listen>\n"
                                 << "  <auth>EXTERNAL</auth>\n"
                                 << "  <policy context=\"default\">\n"
                                 << "    <allow user=\"*\"/>\n"
                                 << "    <allow own=\"*\"/>\n"
                                 << "    <allow send_destination=\"*\"/>\n"
                                 << "    <allow receive_sender=\"*\"/>\n"
                                 << "  </policy>\n"
                                 << "</busconfig>\n";
    unlink(path_.c_str());
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    const UniqueFd from{ends[0]};
    UniqueFd to{ends[1]};
    daemon_ = fork();
    if (daemon_ < 0)
        throw std::system_error(errno, std::generic_category(), "fork");
    if (daemon_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // the bus must not outlive its board
        dup2(to.get(), 3);
        close_range(4, ~0u, 0);
        const std::string file = "--config-file=" + configuration;
        execlp("dbus-daemon", "dbus-daemon", file.c_str(), "--nofork", "--nopidfile", "--nosyslog", "--print-address=3",
               nullptr);
        _exit(127);
    }
    to = UniqueFd{};
    pollfd waiting{from.get(), POLLIN, 0};
    char address[512];
    if (poll(&waiting, 1, kStartLimitMs) != 1 || read(from.get(), address, sizeof address) <= 0) {
        stop();
        throw std::runtime_error("dbus-daemon does not start; is the package dbus-daemon installed?");
    }
}

void LinkBus::connect()
{
    check(sd_bus_new(&bus_), "sd_bus_new");
    check(sd_bus_set_address(bus_, ("unix:path=" + path_).c_str()), "the bus's address");
    check(sd_bus_set_bus_client(bus_, 1), "sd_bus_set_bus_client");
    check(sd_bus_start(bus_), "the board's bus");
}

void LinkBus::add_services()
{
    for (const Service &service : kServices) {
        check(sd_bus_add_fallback_vtable(bus_, nullptr, service.folder, service.interface, kLinkTable, find_object,
                                         &states_),
              service.folder);
        check(sd_bus_request_name(bus_, service.name, 0), service.name);
    }
    check(sd_bus_flush(bus_), "the board's bus");
    board_.loop().watch(sd_bus_get_fd(bus_), [this] {
        while (bus_ && sd_bus_process(bus_, nullptr) > 0)
            ;
        if (bus_)
            sd_bus_flush(bus_);
    });
}

void LinkBus::stop()
{
    if (bus_) {
        board_.loop().forget(sd_bus_get_fd(bus_));
        sd_bus_close(bus_);
        bus_ = sd_bus_unref(bus_);
    }
    if (daemon_ > 0) {
        kill(daemon_, SIGTERM);
        waitpid(daemon_, nullptr, 0);
        daemon_ = -1;
    }
}

void LinkBus::set_state(LinkKind kind, uint32_t number, const std::string &state)
{
    const Service &service = service_of(kind);
    const std::string path = path_of(service, number);
    states_.missed.erase(path);
    const auto found = states_.told.find(path);
    if (found == states_.told.end() || found->second == state)
        return;
    found->second = state;
    last_change_ns_ = now_ns();
    if (bus_) {
        sd_bus_emit_properties_changed(bus_, path.c_str(), service.interface, kProperty, nullptr);
        sd_bus_flush(bus_);
    }
}

std::string LinkBus::state(LinkKind kind, uint32_t number) const
{
    const auto found = states_.told.find(path_of(service_of(kind), number));
    return found == states_.told.end() ? "" : found->second;
}

void LinkBus::miss(LinkKind kind, uint32_t number, const std::string &state)
{
    states_.missed[path_of(service_of(kind), number)] = state;
}

void LinkBus::leave(LinkKind kind)
{
    if (bus_)
        check(sd_bus_release_name(bus_, service_of(kind).name), "leaving the bus");
}

void LinkBus::come_back(LinkKind kind)
{
    if (bus_)
        check(sd_bus_request_name(bus_, service_of(kind).name, 0), "coming back to the bus");
}

} // namespace vboard
