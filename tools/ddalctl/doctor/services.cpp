#include "ddalctl/doctor/services.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>

#include "core/unique_fd.h"

namespace ddalctl::doctor {

using ddal::core::UniqueFd;

namespace {

constexpr int kAnswerLimit = 2000; // ms
constexpr timeval kConnectLimit{.tv_sec = kAnswerLimit / 1000, .tv_usec = 0};
constexpr uint64_t kBusLimit = kAnswerLimit * uint64_t{1000}; // us

template <typename Address>
bool connects(int fd, const Address &address)
{
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &kConnectLimit, sizeof kConnectLimit);
    return connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
}

Problem does_not_answer(const Need &need, const std::string &detail)
{
    return {need.path, kNotRunning, detail};
}

// The calls of the system's library for the message bus, which the tool uses nowhere else.
struct BusCalls {
    void *library = dlopen("libsystemd.so.0", RTLD_NOW | RTLD_LOCAL);
    decltype(&sd_bus_open_system) open = find<decltype(open)>("sd_bus_open_system");
    decltype(&sd_bus_set_method_call_timeout) set_limit = find<decltype(set_limit)>("sd_bus_set_method_call_timeout");
    decltype(&sd_bus_call_method) call = find<decltype(call)>("sd_bus_call_method");
    decltype(&sd_bus_message_read) read = find<decltype(read)>("sd_bus_message_read");
    decltype(&sd_bus_message_unref) unref = find<decltype(unref)>("sd_bus_message_unref");
    decltype(&sd_bus_flush_close_unref) close = find<decltype(close)>("sd_bus_flush_close_unref");

    bool complete() const { return open && set_limit && call && read && unref && close; }

    template <typename Call>
    Call find(const char *name) const
    {
        return library ? reinterpret_cast<Call>(dlsym(library, name)) : nullptr;
    }
};

// "/com/broadcom/switch1/link/_3": "com.broadcom.switch1"
std::string bus_name_of(const std::string &path)
{
    std::string name = path.substr(1, path.find("/link/") - 1);
    for (char &c : name)
        c = c == '/' ? '.' : c;
    return name;
}

// Returns what is wrong, or an empty text.
std::string bus_flaw(const BusCalls &calls, const std::string &name)
{
    sd_bus *bus = nullptr;
    const int opened = calls.open(&bus);
    if (opened < 0)
        return std::string("the message bus does not answer: ") + strerror(-opened);
    calls.set_limit(bus, kBusLimit);
    sd_bus_message *reply = nullptr;
    int owned = 0;
    const int asked = calls.call(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                 "NameHasOwner", nullptr, &reply, "s", name.c_str());
    if (asked >= 0)
        calls.read(reply, "b", &owned);
    calls.unref(reply);
    calls.close(bus);
    if (asked < 0)
        return std::string("the message bus does not answer: ") + strerror(-asked);
    return owned ? "" : name + " is not on the message bus";
}

} // namespace

std::vector<Problem> examine_socket(const Need &need)
{
    const UniqueFd fd{socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)};
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path + 1, need.path, sizeof address.sun_path - 2);
    if (!connects(fd.get(), address))
        return {does_not_answer(need, strerror(errno))};
    pollfd waiting{fd.get(), POLLIN, 0};
    if (poll(&waiting, 1, kAnswerLimit) <= 0)
        return {does_not_answer(need, "sends nothing within 2 s")};
    char answer[16];
    const ssize_t n = recv(fd.get(), answer, sizeof answer, MSG_DONTWAIT);
    if (n != sizeof(uint64_t))
        return {{need.path, kWrongContent, "sends " + std::to_string(n) + " bytes, not 8"}};
    return {};
}

std::vector<Problem> examine_port(const Need &need)
{
    const UniqueFd fd{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(strtoul(need.path, nullptr, 10)));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (!connects(fd.get(), address))
        return {does_not_answer(need, "127.0.0.1:" + std::string(need.path) + ": " + strerror(errno))};
    return {};
}

std::vector<Problem> examine_bus(const Need &need)
{
    static const BusCalls calls;
    const std::string flaw =
        calls.complete() ? bus_flaw(calls, bus_name_of(need.path)) : "libsystemd.so.0 cannot be loaded";
    return flaw.empty() ? std::vector<Problem>{} : std::vector{does_not_answer(need, flaw)};
}

} // namespace ddalctl::doctor
