// Link events in processes that are short of descriptors, that fork, or that close a descriptor while a handler uses
// it.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <iostream>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include <ddal/phy.h>

#include "phy/link_events.h"
#include "support/board.h"
#include "support/in_child.h"
#include "support/log_watch.h"
#include "support/resources.h"

using namespace testing_board;

namespace {

// Holds up every writer to an event descriptor while it lives.
class Gate {
public:
    Gate() { closed = true; }
    ~Gate() { closed = false; }
    Gate(const Gate &) = delete;
    Gate &operator=(const Gate &) = delete;

    static void await_writer()
    {
        while (!waiting)
            std::this_thread::yield();
    }
    static void pass()
    {
        waiting = closed.load();
        while (closed)
            std::this_thread::yield();
        waiting = false;
    }

private:
    static inline std::atomic<bool> closed{false};
    static inline std::atomic<bool> waiting{false};
};

// Leaves this many descriptors free while it lives.
class Scarce {
public:
    explicit Scarce(size_t free)
    {
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        usual_ = limit.rlim_cur;
        limit.rlim_cur = 200;
        setrlimit(RLIMIT_NOFILE, &limit);
        for (int fd; (fd = dup(STDIN_FILENO)) >= 0;)
            taken_.push_back(fd);
        for (; free > 0; --free, taken_.pop_back())
            close(taken_.back());
    }
    ~Scarce()
    {
        for (const int fd : taken_)
            close(fd);
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = usual_;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    Scarce(const Scarce &) = delete;
    Scarce &operator=(const Scarce &) = delete;

private:
    rlim_t usual_;
    std::vector<int> taken_;
};

// Opens and closes a descriptor all the time. Hides that from the thread sanitizer, which takes two uses of a number
// for a race.
class BusyThread {
public:
    BusyThread() = default;
    ~BusyThread()
    {
        over_ = true;
        thread_.join();
    }
    BusyThread(const BusyThread &) = delete;
    BusyThread &operator=(const BusyThread &) = delete;

private:
    std::atomic<bool> over_{false};
    std::thread thread_{[this] {
        while (!over_)
            if (const long fd = syscall(SYS_dup, STDIN_FILENO); fd >= 0)
                syscall(SYS_close, fd);
    }};
};

// Registers with this many descriptors free, and again with enough. The digit shows how the first try ended.
std::string register_scarcely(size_t free, uint32_t port, int *fd)
{
    {
        const Scarce scarce(free);
        errno = 0;
        *fd = ddal_phy_event_register_broadcom_switch(port);
        if (*fd < 0 && errno != EMFILE)
            return " errno " + std::to_string(errno);
    }
    const bool refused = *fd < 0;
    if (refused)
        *fd = ddal_phy_event_register_broadcom_switch(port);
    if (const int state = next_state(*fd); state != 1)
        return " state " + std::to_string(state);
    return refused ? "0" : "1";
}

// Runs a process's first and second registration, a change, a restart of the bus and the last unregistration, each with
// this many descriptors free.
std::string live_with(size_t free)
{
    int first = -1, second = -1, again = -1;
    std::string text = register_scarcely(free, 20, &first);
    text += register_scarcely(free, 14, &second);
    {
        const Scarce scarce(free);
        ctl("link 3 down");
        text += next_state(first) == 0 ? "" : " change";
        ctl("link bus stop");
        text += next_state(first) == -EIO && next_state(second) == -EIO ? "" : " stop";
        text += ddal_phy_event_unregister(first) == 0 && ddal_phy_event_unregister(second) == 0 ? "" : " unregister";
        ctl("link bus start");
        ctl("link 3 up");
    }
    text += register_scarcely(free, 20, &again);
    const Scarce scarce(free);
    return text + (ddal_phy_event_unregister(again) == 0 ? "" : " unregister");
}

} // namespace

// Replaces the function of libc.
extern "C" int eventfd_write(int fd, eventfd_t value)
{
    Gate::pass();
    return write(fd, &value, sizeof value) == sizeof value ? 0 : -1;
}

// Must run first, before this process has opened an event. A child starts in the same state.
TEST_F(LinkEvents, AFailedStartLasts)
{
    EXPECT_EQ(in_child([] {
                  const Fault fault("pthread_create:* errno=EAGAIN");
                  LogWatch log;
                  int results = ddal_phy_event_register_broadcom_switch(20);
                  results += ddal_phy_event_register_broadcom_switch(20);
                  std::string text = std::to_string(results);
                  for (const std::string &line : log.take())
                      text += "|" + line;
                  return text;
              }),
              "-2|3 initialize_phy_events: pthread creation failed: 11"
              "|3 _ddal_phy_event_register: phy event loop is not running!"
              "|3 _ddal_phy_event_register: phy event loop is not running!");
}

// The second and the third thread show that GLib's two can start.
TEST_F(LinkEvents, DoNotEndAProcessThatIsShortOfThreads)
{
    for (const char *nth : {"2", "3"})
        EXPECT_EQ(in_child([=] {
                      LogWatch log;
                      int first = 0;
                      {
                          const Fault fault(std::string("pthread_create:* errno=EAGAIN count=0 nth=") + nth);
                          first = ddal_phy_event_register_broadcom_switch(20);
                      }
                      const int error = errno;
                      const int again = ddal_phy_event_register_broadcom_switch(20);
                      return std::to_string(first) + " " + strerrorname_np(error) + " " +
                             std::to_string(next_state(again)) + "|" + log.take().at(1);
                  }),
                  "-1 EAGAIN 1|3 _ddal_phy_event_register: error creating dbus proxy for object path "
                  "/com/broadcom/switch1/link/_320: Resource temporarily unavailable")
            << nth;
}

TEST_F(LinkEvents, DoNotEndAProcessThatIsShortOfDescriptors)
{
    constexpr size_t kMost = 16;
    for (const bool busy : {false, true}) {
        std::string outcomes[3];
        for (size_t free = 0; free <= kMost; ++free) {
            const std::string text = in_child([=] {
                const auto thread = busy ? std::make_unique<BusyThread>() : nullptr;
                return live_with(free);
            });
            ASSERT_EQ(text.size(), 3u) << free << " free: " << text;
            for (size_t i = 0; i < 3; ++i)
                outcomes[i] += text[i];
        }
        for (const std::string &each : outcomes) {
            std::cout << (busy ? "busy " : "calm ") << each << "\n";
            EXPECT_EQ(each.front(), '0') << "without a descriptor";
            EXPECT_EQ(each.back(), '1') << "with " << kMost;
            // The busy thread's descriptor can be open while the limit is counted, and while the library counts.
            EXPECT_TRUE(busy || std::is_sorted(each.begin(), each.end())) << "fewer were enough: " << each;
        }
    }
}

TEST_F(LinkEvents, LeaveNothingBehindWithoutADescriptor)
{
    ASSERT_EQ(ddal_phy_event_unregister(ddal_phy_event_register_broadcom_switch(18)), 0);
    const Resources before;
    for (const char *error : {"EMFILE", "ENFILE"}) {
        for (int nth = 1; nth <= 3; ++nth) { // the descriptor itself, and those that GLib is about to need
            const Fault fault("eventfd:* nth=" + std::to_string(nth) + " errno=" + error);
            LogWatch log;
            errno = 0;
            EXPECT_EQ(ddal_phy_event_register_broadcom_switch(20), -1);
            EXPECT_STREQ(strerrorname_np(errno), error);
            EXPECT_EQ(log.take(), std::vector<std::string>{"3 _ddal_phy_event_register: unable to open eventfd: " +
                                                           std::to_string(errno)});
        }
    }
    EXPECT_EQ(before.difference(), "");
    const Scarce scarce(7); // too few for another connection to the bus
    EXPECT_EQ(ddal_phy_event_unregister(ddal_phy_event_register_broadcom_switch(20)), 0);
}

// A handler that runs while its descriptor is closed must not write to the next file with that number.
TEST_F(LinkEvents, ARunningHandlerKeepsItsDescriptor)
{
    const int fd = ddal_phy_event_register_broadcom_switch(20);
    ASSERT_EQ(next_state(fd), 1);
    std::thread closing;
    std::atomic<int> result{1};
    {
        const Gate gate;
        ctl("link 3 down");
        Gate::await_writer();
        closing = std::thread([&] { result = ddal_phy_event_unregister(fd); });
        std::this_thread::sleep_for(std::chrono::milliseconds(kNever));
        EXPECT_NE(fcntl(fd, F_GETFD), -1) << "closed under the handler";
    }
    closing.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

// The state is read once more after a registration, because an earlier change may have gone unreported.
TEST_F(LinkEvents, ALateAnswerReachesOnlyItsRegistration)
{
    const int slow = ddal_phy_event_register_broadcom_switch(18);
    ASSERT_EQ(next_state(slow), 1);
    ctl("link missed broadcom 20 no-carrier");
    int reused = -1;
    {
        const Gate gate;
        ctl("link 1 down");
        Gate::await_writer(); // answers wait behind it
        const int ended = ddal_phy_event_register_broadcom_switch(20);
        EXPECT_EQ(ddal_phy_event_unregister(ended), 0);
        reused = ddal_phy_event_register_broadcom_switch(14);
        ASSERT_EQ(reused, ended);
        EXPECT_EQ(next_state(reused), 1);
    }
    EXPECT_EQ(next_state(slow), 0);
    EXPECT_EQ(next_state(reused, kNever), -1) << "an answer for the earlier registration with that number";

    const int late = ddal_phy_event_register_broadcom_switch(20);
    const int state = next_state(late);
    EXPECT_EQ(state == 1 ? next_state(late) : state, 0);
    for (const int fd : {slow, reused, late})
        EXPECT_EQ(ddal_phy_event_unregister(fd), 0);
}

// fork does not copy the thread, and a lock held at that moment is never released in the child.
TEST_F(LinkEvents, RefuseAForkedChildAtOnce)
{
    constexpr int kForks = 500;     // --gtest_repeat=20 for 10,000
    constexpr unsigned kLimit = 20; // s
    const int pending = ddal_phy_event_register_broadcom_switch(14);
    ASSERT_GE(pending, 0);
    const auto refused = [=] {
        uint16_t state = 9;
        int fd = 99;
        return ddal_phy_event_register_broadcom_switch(20) == -1 && ddal_phy_event_register_marvell_switch(4) == -1 &&
               ddal_phy_event_register_linux_interface("eth0") == -1 &&
               ddal_phy_copper_event_open(3, 0, &fd) == -1001 && ddal_phy_event_retrieve(pending, &state) == -ENOENT &&
               ddal_phy_copper_event_get(pending, &state) == -ENOENT && ddal_phy_event_unregister(pending) == -ENOENT &&
               ddal_phy_copper_event_close(pending) == -ENOENT && state == 9 && fd == 99;
    };
    EXPECT_EQ(in_child([&] {
                  LogWatch log;
                  std::string text = refused() ? "refused" : "not refused";
                  for (const std::string &line : log.take())
                      text += "\n" + line;
                  return text;
              }),
              "refused\n"
              "3 _ddal_phy_event_register: phy event loop is not running!\n"
              "3 _ddal_phy_event_register: phy event loop is not running!\n"
              "3 _ddal_phy_event_register: phy event loop is not running!\n"
              "3 _ddal_phy_event_register: phy event loop is not running!\n"
              "3 ddal_phy_copper_event_open: failed to create event socket for phy dev: 3\n"
              "3 ddal_phy_event_retrieve: ddal_phy_event_register has not been called yet\n"
              "3 ddal_phy_event_retrieve: ddal_phy_event_register has not been called yet\n"
              "3 ddal_phy_event_unregister: ddal_phy_event_register has not been called yet\n"
              "3 ddal_phy_event_unregister: ddal_phy_event_register has not been called yet");

    std::atomic<bool> over{false};
    std::thread rain([&] {
        vboard::Client board;
        for (int i = 0; !over; ++i)
            board.run(i % 2 ? "link 3 up" : "link 3 down");
    });
    std::thread work([&] {
        uint16_t state = 0;
        for (int i = 0; !over; ++i) {
            const int fd = ddal_phy_event_register_broadcom_switch(20);
            for (int j = 0; j < 20; ++j)
                ddal_phy_event_retrieve(fd, &state);
            ddal_phy_event_unregister(fd);
        }
    });
    int hung = 0, wrong = 0;
    const int standard_error = dup(STDERR_FILENO);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDERR_FILENO);
    for (int i = 0; i < kForks; ++i) {
        const int status = wait_for_child(start_child([&] {
            alarm(kLimit);
            return refused() ? 0 : 1;
        }));
        hung += status == -SIGALRM;
        wrong += status != 0 && status != -SIGALRM;
    }
    dup2(standard_error, STDERR_FILENO);
    close(standard_error);
    close(nowhere);
    over = true;
    rain.join();
    work.join();
    std::cout << kForks << " forks, " << hung << " hung, " << wrong << " not refused\n";
    EXPECT_EQ(hung, 0);
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(next_state(pending), 1) << "a child took the parent's event";
    EXPECT_EQ(ddal_phy_event_unregister(pending), 0);
}
