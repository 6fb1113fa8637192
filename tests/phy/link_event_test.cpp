// Link events on the MBO board: device 3 is port 20 of the switch, device 0 port 14, device 1 port 18.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <iostream>
#include <mutex>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>

#include <ddal/phy.h>

#include "phy/link_events.h"
#include "support/board.h"
#include "support/log_watch.h"
#include "support/resources.h"

using namespace testing_board;

namespace {

int64_t now_ns()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

} // namespace

// Must run first, before this process has opened an event or loaded the D-Bus library.
TEST_F(LinkEvents, AreRefusedBeforeTheFirstRegistration)
{
    EXPECT_EQ(dlopen("libgio-2.0.so.0", RTLD_NOW | RTLD_NOLOAD), nullptr);
    const int fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    uint16_t state = 9;
    LogWatch log;
    EXPECT_EQ(ddal_phy_event_retrieve(fd, &state), -ENOENT);
    EXPECT_EQ(ddal_phy_event_unregister(fd), -ENOENT);
    EXPECT_EQ(ddal_phy_event_retrieve(-1, &state), -EIO);
    EXPECT_EQ(log.take(), (std::vector<std::string>{
                              "3 ddal_phy_event_retrieve: ddal_phy_event_register has not been called yet",
                              "3 ddal_phy_event_unregister: ddal_phy_event_register has not been called yet",
                              "3 ddal_phy_event_retrieve: error reading eventfd -1: 9",
                          }));
    EXPECT_EQ(close(fd), 0) << "the library closed a foreign descriptor";
}

TEST_F(LinkEvents, ReportThePresentStateFirstAndThenEveryChange)
{
    for (const auto &[device, port] : {std::pair{0, "14"}, {1, "18"}, {3, "20"}, {4, "21"}}) {
        int fd = -1;
        ASSERT_EQ(ddal_phy_copper_event_open(static_cast<uint32_t>(device), 0, &fd), 0);
        EXPECT_EQ(next_state(fd), 1) << "readable from the start";
        EXPECT_EQ(next_state(fd, kNever), -1);
        const std::string link = "link " + std::to_string(device);
        ctl(link + " down");
        EXPECT_EQ(next_state(fd), 0) << device;
        ctl(link + " up");
        EXPECT_EQ(next_state(fd), 1) << device;
        for (const auto &[text, state] : {std::pair{"off", 0}, {"degraded", 1}, {"no-carrier", 0}, {"carrier", 1}}) {
            ctl(std::string("link state broadcom ") + port + " " + text);
            EXPECT_EQ(next_state(fd), state) << text;
        }
        uint16_t state = 9;
        EXPECT_EQ(ddal_phy_copper_event_get(fd, &state), 0) << "a call without a pending event is not a failure";
        EXPECT_EQ(state, 1);
        EXPECT_EQ(ddal_phy_copper_event_close(fd), 0);
        EXPECT_EQ(fcntl(fd, F_GETFD), -1) << "still open";
    }
}

TEST_F(LinkEvents, MergeUntilTheyAreRetrieved)
{
    const int fd = ddal_phy_event_register_broadcom_switch(20);
    ASSERT_EQ(next_state(fd), 1);
    for (int i = 0; i < 25; ++i) {
        ctl("link 3 down");
        ctl("link 3 up");
    }
    ctl("link 3 down");
    int last = -1;
    int events = 0;
    for (int state; (state = next_state(fd, kNever)) >= 0; ++events)
        last = state;
    EXPECT_EQ(last, 0);
    EXPECT_LE(events, 51);
    EXPECT_EQ(ddal_phy_event_unregister(fd), 0);
}

TEST_F(LinkEvents, ReportAPortThatIsSwitchedOff)
{
    const int fd = ddal_phy_event_register_broadcom_switch(18);
    ASSERT_EQ(next_state(fd), 1);
    EXPECT_EQ(ddal_phy_copper_power_down(1), 0);
    EXPECT_EQ(next_state(fd), 0);
    EXPECT_EQ(ddal_phy_copper_power_up(1), 0);
    EXPECT_EQ(next_state(fd), 1);
    EXPECT_EQ(ddal_phy_event_unregister(fd), 0);
}

TEST_F(LinkEvents, ReportInterfacesAndTheExternalSwitch)
{
    const int interface = ddal_phy_event_register_linux_interface("eth3"); // index 5
    const int external = ddal_phy_event_register_marvell_switch(4);
    ASSERT_EQ(next_state(interface), 1);
    ASSERT_EQ(next_state(external), 1);
    ctl("link state network 5 no-carrier");
    EXPECT_EQ(next_state(interface), 0);
    ctl("link state marvell 4 off");
    EXPECT_EQ(next_state(external), 0);
    EXPECT_EQ(next_state(interface, kNever), -1) << "the change of another object";
    ctl("link state network 5 routable");
    ctl("link state marvell 4 routable");
    EXPECT_EQ(ddal_phy_event_unregister(interface), 0);
    EXPECT_EQ(ddal_phy_event_unregister(external), 0);
}

TEST_F(LinkEvents, RefuseUnknownLinks)
{
    LogWatch log;
    int fd = 99;
    EXPECT_EQ(ddal_phy_copper_event_open(3, 1, &fd), -EINVAL);
    EXPECT_EQ(ddal_phy_copper_event_open(3, 0, nullptr), -EINVAL);
    EXPECT_EQ(ddal_phy_copper_event_open(5, 0, &fd), -ENODEV);
    EXPECT_EQ(ddal_phy_event_register_linux_interface("nothere"), -1);
    EXPECT_EQ(ddal_phy_event_register_linux_interface(nullptr), -1);
    EXPECT_EQ(ddal_phy_event_register_broadcom_switch(1000), -1);
    EXPECT_EQ(ddal_phy_event_register_marvell_switch(1000), -1);
    EXPECT_EQ(fd, 99);
    EXPECT_EQ(log.take(),
              (std::vector<std::string>{
                  "3 ddal_phy_copper_event_open: unsupported PHY event: 1",
                  "3 ddal_phy_copper_event_open: null phy_fd parameter",
                  "3 mbo_board_association_set: unsupported phy device 5",
                  "3 ddal_phy_copper_event_open: failed to get association for dev: 5",
                  "3 ddal_phy_event_register_linux_interface: unable to construct object path with ifindex 0",
                  "3 ddal_phy_event_register_linux_interface: unable to construct object path with ifindex 0",
                  "3 ddal_phy_event_register_broadcom_switch: unable to construct object path with port 1000",
                  "3 ddal_phy_event_register_marvell_switch: unable to construct object path with port 1000",
              }));

    // Port 999 is in range, but the link does not exist and its state is never reported.
    const int absent = ddal_phy_event_register_broadcom_switch(999);
    EXPECT_GE(absent, 0);
    EXPECT_EQ(next_state(absent), -EIO);
    EXPECT_EQ(ddal_phy_event_unregister(absent), 0);
    EXPECT_EQ(ddal_phy_event_unregister(absent), -ENOENT);
}

TEST_F(LinkEvents, SurviveARestartOfTheService)
{
    const int fd = ddal_phy_event_register_broadcom_switch(20);
    ASSERT_EQ(next_state(fd), 1);
    ctl("link service broadcom leave");
    uint16_t state = 9;
    LogWatch log;
    const int64_t limit = now_ns() + int64_t{kSoon} * 1'000'000;
    while (ddal_phy_event_retrieve(fd, &state) == 0 && now_ns() < limit)
        usleep(1000); // the signal has not arrived yet
    EXPECT_EQ(ddal_phy_event_retrieve(fd, &state), -EIO);
    EXPECT_EQ(log.take(),
              std::vector<std::string>(2, "3 ddal_phy_event_retrieve: could not retrieve OperationalState for fd " +
                                              std::to_string(fd)));
    const int meanwhile = ddal_phy_event_register_broadcom_switch(18);
    EXPECT_GE(meanwhile, 0) << "a missing service may appear later";
    EXPECT_EQ(next_state(meanwhile), -EIO);

    ctl("link 3 down");
    ctl("link service broadcom return");
    EXPECT_EQ(next_state(fd), 0) << "the change during the absence";
    EXPECT_EQ(next_state(meanwhile), 1);
    EXPECT_EQ(ddal_phy_event_unregister(fd), 0);
    EXPECT_EQ(ddal_phy_event_unregister(meanwhile), 0);
}

TEST_F(LinkEvents, SurviveARestartOfTheBus)
{
    const int fd = ddal_phy_event_register_broadcom_switch(20);
    ASSERT_EQ(next_state(fd), 1);
    ctl("link bus stop");
    EXPECT_EQ(next_state(fd), -EIO) << "a waiting caller must be told";
    LogWatch log;
    EXPECT_EQ(ddal_phy_event_register_broadcom_switch(18), -1);
    EXPECT_EQ(log.take().size(), 1u);
    EXPECT_EQ(ddal_phy_event_unregister(fd), 0);

    ctl("link bus start");
    const int again = ddal_phy_event_register_broadcom_switch(20);
    ASSERT_GE(again, 0) << "the library finds the bus again once all old descriptors are closed";
    EXPECT_EQ(next_state(again), 1);
    ctl("link 3 down");
    EXPECT_EQ(next_state(again), 0);
    EXPECT_EQ(ddal_phy_event_unregister(again), 0);
}

TEST_F(LinkEvents, ArriveWithoutATimedWait)
{
    constexpr int kRounds = 400;
    const int fd = ddal_phy_event_register_broadcom_switch(20);
    ASSERT_EQ(next_state(fd), 1);
    std::vector<int64_t> delays;
    for (int i = 0; i < kRounds; ++i) {
        ctl(i % 2 ? "link 3 up" : "link 3 down");
        ASSERT_TRUE(becomes_readable(fd, kSoon));
        const int64_t readable = now_ns();
        delays.push_back(readable - std::stoll(ctl("link stamp")));
        ASSERT_EQ(next_state(fd), i % 2);
    }
    std::sort(delays.begin(), delays.end());
    std::cout << "from the signal on the bus to the readable descriptor: median " << delays[kRounds / 2] / 1000
              << " us, 95 of 100 within " << delays[kRounds * 95 / 100] / 1000 << " us\n";
    EXPECT_EQ(ddal_phy_event_unregister(fd), 0);
}

// A change during the registration must be in the first reported state, or be reported later.
TEST_F(LinkEvents, ReportAChangeDuringTheRegistration)
{
    constexpr int kRounds = 400;
    const int keeps_the_bus = ddal_phy_event_register_broadcom_switch(18);
    int lost = 0;
    for (int i = 0; i < kRounds; ++i) {
        const int last = i % 2;
        std::thread change([&] {
            usleep(static_cast<useconds_t>(i * 37 % 700));
            ctl(last ? "link state broadcom 20 routable" : "link state broadcom 20 no-carrier");
        });
        const int fd = ddal_phy_event_register_broadcom_switch(20);
        change.join();
        int state = next_state(fd);
        while (state >= 0 && state != last)
            state = next_state(fd, kNever);
        lost += state != last;
        EXPECT_EQ(ddal_phy_event_unregister(fd), 0);
    }
    EXPECT_EQ(lost, 0) << "of " << kRounds;
    EXPECT_EQ(ddal_phy_event_unregister(keeps_the_bus), 0);
}

// Threads open, wait, retrieve and close while the links keep changing. The last state is always reported, and nothing
// is left behind.
TEST_F(LinkEvents, TenThousandChanges)
{
    constexpr int kChanges = 10'000, kThreads = 4, kPerThread = 4, kPorts = 16, kFirstPort = 1;
    const int keeps_the_bus = ddal_phy_event_register_broadcom_switch(20);
    const Resources before;
    std::array<std::atomic<int>, kPorts> last;
    for (int i = 0; i < kPorts; ++i) {
        ctl("link state broadcom " + std::to_string(kFirstPort + i) + " routable");
        last[static_cast<size_t>(i)] = 1;
    }

    std::atomic<bool> changing{true};
    std::atomic<int> lost{0}, failed{0};
    std::atomic<long> events{0}, opened{0};
    const auto work = [&](int thread) {
        struct Watched {
            int port;
            int fd;
            int seen;
        };
        std::vector<Watched> watched;
        const auto open_one = [&](int port) {
            const int fd = ddal_phy_event_register_broadcom_switch(static_cast<uint32_t>(kFirstPort + port));
            failed += fd < 0;
            ++opened;
            watched.push_back({port, fd, -1});
        };
        for (int i = 0; i < kPerThread; ++i)
            open_one(thread * kPerThread + i);
        for (unsigned round = 0;; ++round) {
            const bool last_round = !changing;
            std::vector<pollfd> waiting;
            for (const Watched &each : watched)
                waiting.push_back({each.fd, POLLIN, 0});
            const int n = poll(waiting.data(), waiting.size(), last_round ? kNever : 20);
            if (n == 0 && last_round)
                break; // no more events
            for (size_t i = 0; i < watched.size(); ++i) {
                if (waiting[i].revents == 0)
                    continue;
                uint16_t state = 9;
                failed += ddal_phy_event_retrieve(watched[i].fd, &state) != 0;
                watched[i].seen = state;
                ++events;
            }
            if (round % 16 == 15) { // replaces a descriptor by a new one, which is likely to have the same number
                failed += ddal_phy_event_unregister(watched.front().fd) != 0;
                const int port = watched.front().port;
                watched.erase(watched.begin());
                open_one(port);
            }
        }
        for (const Watched &each : watched) {
            lost += each.seen != last[static_cast<size_t>(each.port)];
            failed += ddal_phy_event_unregister(each.fd) != 0;
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back(work, i);
    unsigned seed = 1;
    for (int i = 0; i < kChanges; ++i) {
        seed = seed * 1103515245 + 12345;
        const auto port = static_cast<size_t>(seed >> 16) % kPorts;
        last[port] = !last[port];
        ctl("link state broadcom " + std::to_string(kFirstPort + static_cast<int>(port)) +
            (last[port] ? " routable" : " no-carrier"));
    }
    changing = false;
    for (std::thread &thread : threads)
        thread.join();
    std::cout << kChanges << " changes, " << events << " events, " << opened << " descriptors opened\n";
    EXPECT_EQ(lost, 0) << "descriptors that did not learn the last state";
    EXPECT_EQ(failed, 0);
    EXPECT_EQ(before.difference(), "");
    EXPECT_EQ(ddal_phy_event_unregister(keeps_the_bus), 0);
}
