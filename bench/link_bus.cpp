#include "bench/link_bus.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

namespace bench {

namespace {

constexpr const char *kService = "com.broadcom.switch1";
constexpr const char *kInterface = "com.broadcom.switch1.Link";
constexpr const char *kFolder = "/com/broadcom/switch1/link";
constexpr const char *kProperty = "OperationalState";
constexpr int kStartLimitMs = 10'000;

[[noreturn]] void fail(const char *what, int error)
{
    fprintf(stderr, "bench: %s: %s\n", what, strerror(error));
    exit(2);
}

void check(int result, const char *what)
{
    if (result < 0)
        fail(what, -result);
}

int find_object(sd_bus *, const char *, const char *, void *user_data, void **found, sd_bus_error *)
{
    *found = user_data;
    return 1;
}

int get_state(sd_bus *, const char *path, const char *, const char *, sd_bus_message *reply, void *user_data,
              sd_bus_error *)
{
    const auto *up = static_cast<const bool *>(user_data);
    const auto port = strtoul(strrchr(path, '_') + 2, nullptr, 10);
    return sd_bus_message_append(reply, "s", port < kFirstPort + kPorts && up[port] ? "routable" : "no-carrier");
}

const sd_bus_vtable kLinkTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("OperationalState", "s", get_state, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_VTABLE_END,
};

void wait_for_byte(int fd, const char *what)
{
    pollfd waiting = {fd, POLLIN, 0};
    char bytes[256];
    if (poll(&waiting, 1, kStartLimitMs) != 1 || read(fd, bytes, sizeof bytes) <= 0)
        fail(what, ETIMEDOUT);
}

} // namespace

int64_t monotonic_ns()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

LinkBus::LinkBus()
{
    void *shared = mmap(nullptr, sizeof *times_ * (kFirstPort + kPorts), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED)
        fail("mmap", errno);
    times_ = static_cast<std::atomic<int64_t> *>(shared);
    folder_ = "/tmp/ddal-bench-XXXXXX";
    if (!mkdtemp(folder_.data()))
        fail("a folder for the bus", errno);
    address_ = "unix:path=" + folder_ + "/bus";
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
    start_bus();
    start_service();
}

LinkBus::~LinkBus()
{
    close(requests_);
    waitpid(service_, nullptr, 0);
    kill(bus_, SIGTERM);
    waitpid(bus_, nullptr, 0);
    for (const char *name : {"/bus", "/bus.conf"})
        unlink((folder_ + name).c_str());
    rmdir(folder_.c_str());
}

void LinkBus::start_bus()
{
    const std::string configuration = folder_ + "/bus.conf";
    FILE *out = fopen(configuration.c_str(), "we");
    if (!out)
        fail(configuration.c_str(), errno);
    fprintf(out,
            "<busconfig><listen>%s</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow user=\"*\"/>"
            "<allow own=\"*\"/><allow send_destination=\"*\"/><allow receive_sender=\"*\"/></policy></busconfig>\n",
            address_.c_str());
    fclose(out);

    int ends[2];
    if (pipe(ends) != 0 || (bus_ = fork()) < 0)
        fail("dbus-daemon", errno);
    if (bus_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        close(ends[0]);
        const std::string file = "--config-file=" + configuration;
        const std::string print = "--print-address=" + std::to_string(ends[1]);
        execlp("dbus-daemon", "dbus-daemon", file.c_str(), "--nofork", "--nopidfile", "--nosyslog", print.c_str(),
               nullptr);
        _exit(127);
    }
    close(ends[1]);
    wait_for_byte(ends[0], "dbus-daemon does not start; is the package dbus-daemon installed?");
    close(ends[0]);
}

void LinkBus::start_service()
{
    int requests[2];
    int ready[2];
    if (pipe2(requests, O_CLOEXEC) != 0 || pipe2(ready, O_CLOEXEC) != 0 || (service_ = fork()) < 0)
        fail("the link service", errno);
    if (service_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        close(requests[1]);
        dup2(ready[1], STDIN_FILENO); // reports that the name is on the bus
        serve(requests[0]);
    }
    close(requests[0]);
    close(ready[1]);
    requests_ = requests[1];
    wait_for_byte(ready[0], "the link service does not start");
    close(ready[0]);
}

void LinkBus::serve(int requests)
{
    bool up[kFirstPort + kPorts];
    memset(up, 1, sizeof up);
    sd_bus *bus = nullptr;
    check(sd_bus_open_system(&bus), "the bus");
    check(sd_bus_add_fallback_vtable(bus, nullptr, kFolder, kInterface, kLinkTable, find_object, up),
          "the link objects");
    check(sd_bus_request_name(bus, kService, 0), kService);
    check(static_cast<int>(write(STDIN_FILENO, "!", 1)), "ready");
    for (;;) {
        while (sd_bus_process(bus, nullptr) > 0)
            ;
        pollfd waiting[] = {{requests, POLLIN, 0}, {sd_bus_get_fd(bus), POLLIN, 0}};
        poll(waiting, 2, -1);
        if (waiting[0].revents == 0)
            continue;
        uint8_t ports[kPorts];
        const ssize_t n = read(requests, ports, sizeof ports);
        if (n <= 0)
            _exit(0);
        for (ssize_t i = 0; i < n; i++) {
            up[ports[i]] = !up[ports[i]];
            times_[ports[i]] = monotonic_ns();
            const std::string path = std::string(kFolder) + "/_3" + std::to_string(ports[i]);
            sd_bus_emit_properties_changed(bus, path.c_str(), kInterface, kProperty, nullptr);
            sd_bus_flush(bus);
        }
    }
}

void LinkBus::change(unsigned port) const
{
    const auto byte = static_cast<uint8_t>(port);
    if (write(requests_, &byte, 1) != 1)
        fail("the link service", errno);
}

} // namespace bench
