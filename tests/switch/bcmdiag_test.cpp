// The shell client against shells of all kinds. Time passes ten times as fast, so 3 s take 0.3 s.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <ctime>
#include <functional>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <regex>
#include <sys/socket.h>
#include <thread>
#include <tuple>
#include <unistd.h>

#include <ddal/bcmdiag.h>

#include "support/board.h"
#include "support/log_watch.h"
#include "support/resources.h"
#include "support/surroundings.h"

using namespace testing_board;

namespace {

constexpr uint16_t kShellPort = 5342;

vboard::PortMap &shell_port()
{
    vboard::Page &page = board().page();
    for (uint32_t i = 0; i < page.port_count; ++i)
        if (page.ports[i].board == kShellPort)
            return page.ports[i];
    throw std::runtime_error("this board maps no shell port");
}

// A shell of the test in place of the board's. `talk` handles the connection.
class Shell {
public:
    explicit Shell(std::function<void(int)> talk)
    {
        listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof address);
        listen(listener_, 4);
        getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &length);
        shell_port().host = ntohs(address.sin_port);
        thread_ = std::thread([this, talk] {
            const int fd = accept(listener_, nullptr, nullptr);
            if (fd >= 0) {
                talk(fd);
                close(fd);
            }
        });
    }
    ~Shell()
    {
        shutdown(listener_, SHUT_RDWR);
        thread_.join();
        close(listener_);
        shell_port().host = original_;
    }
    Shell(const Shell &) = delete;
    Shell &operator=(const Shell &) = delete;

private:
    const uint16_t original_ = shell_port().host;
    int listener_;
    std::thread thread_;
};

void say(int fd, const std::string &text)
{
    static_cast<void>(!send(fd, text.data(), text.size(), MSG_NOSIGNAL));
}

std::string read_line(int fd)
{
    std::string line;
    for (char byte; line.empty() || line.back() != '\n'; line += byte)
        if (recv(fd, &byte, 1, 0) != 1)
            break;
    return line;
}

// A well-behaved shell: a command prints `output`, "echo $?" prints `result`.
std::function<void(int)> good_shell(std::string output, std::string result)
{
    return [=](int fd) {
        say(fd, "BCM.0> ");
        for (int i = 0; i < 3; ++i) {
            const std::string line = read_line(fd);
            if (line.empty())
                return;
            say(fd, line + (line == "echo $?\n" ? result + "\r\n" : line == "exit;\n" ? "" : output) + "BCM.0> ");
        }
        read_line(fd);
    };
}

struct Outcome {
    int result;
    std::string out;
    double seconds; // in board time
};

double board_seconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

std::atomic<bool> call_is_over;

Outcome run(const std::function<void(int)> &talk, const std::string &command = "show c")
{
    board(); // connects first, because the connection stays open
    const Resources before;
    char *text = nullptr;
    size_t length = 0;
    FILE *out = open_memstream(&text, &length);
    Outcome outcome{};
    {
        const Shell shell(talk);
        const double begin = board_seconds();
        call_is_over = false;
        outcome.result = telnet_bcmdiag(out, "%s", command.c_str());
        call_is_over = true;
        outcome.seconds = board_seconds() - begin;
    }
    fclose(out);
    outcome.out.assign(text, length);
    free(text);
    EXPECT_EQ(before.difference(), "");
    return outcome;
}

} // namespace

TEST(Bcmdiag, ReturnsTheResultOfTheCommand)
{
    for (const auto &[printed, result] : {std::pair{"0", 0},
                                          {"7", 7},
                                          {"-5", -5},
                                          {"  12  ", 12},
                                          {"99999999999999999999", INT_MAX},
                                          {"-99999999999999999999", INT_MIN}}) {
        const Outcome outcome = run(good_shell("a\r\nb\r\n", printed));
        EXPECT_EQ(outcome.result, result) << printed;
        EXPECT_EQ(outcome.out, "a\nb\n");
    }
}

TEST(Bcmdiag, SendsExitCommandAndStatus)
{
    std::string seen;
    EXPECT_EQ(run(
                  [&](int fd) {
                      say(fd, "BCM.0> ");
                      for (int i = 0; i < 3; ++i) {
                          const std::string line = read_line(fd);
                          seen += line;
                          say(fd, line + (i == 2 ? "0\n" : "") + "BCM.0> ");
                      }
                  },
                  "modreg a b=1")
                  .result,
              0);
    EXPECT_EQ(seen, "exit;\nmodreg a b=1\necho $?\n");
    EXPECT_EQ(ctl("switch-shell log"), "");
    EXPECT_EQ(telnet_bcmdiag(nullptr, "with %d and %s", 5, "text"), 0) << "the board's own shell, output dropped";
    EXPECT_EQ(ctl("switch-shell log"), "with 5 and text\n");
}

TEST(Bcmdiag, WaitsThreeSecondsForASilentShell)
{
    struct Manner {
        const char *what;
        std::function<void(int)> talk;
    };
    const auto silent = [](int fd) {
        while (!read_line(fd).empty())
            ;
    };
    for (const Manner &each : {
             Manner{"says nothing", silent},
             Manner{"echoes and says nothing", [&](int fd) { say(fd, read_line(fd)), silent(fd); }},
             Manner{"says no prompt", [&](int fd) { say(fd, read_line(fd) + "BCM.1> "), silent(fd); }},
             Manner{"says half a prompt", [&](int fd) { say(fd, read_line(fd) + "BCM.0>"), silent(fd); }},
             Manner{"says a prompt and more", [&](int fd) { say(fd, read_line(fd) + "BCM.0> x"), silent(fd); }},
         }) {
        const Outcome outcome = run(each.talk);
        EXPECT_EQ(outcome.result, -ETIMEDOUT) << each.what;
        EXPECT_GE(outcome.seconds, 2.9) << each.what;
        EXPECT_LT(outcome.seconds, 40) << each.what;
    }
    // A shell that reads no input: a large command cannot be sent.
    const Outcome outcome = run(
        [](int fd) {
            say(fd, "BCM.0> ");
            say(fd, read_line(fd) + "BCM.0> ");
            while (!call_is_over)
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
        },
        std::string(20'000'000, 'c'));
    EXPECT_EQ(outcome.result, -EIO);
}

// Each wait is short but the sequence has no end, so the step ends after 30 s or 4 MiB.
TEST(Bcmdiag, IsNotHeldByAShellThatDripsOrFloods)
{
    const auto drip = [](int fd) {
        for (; !call_is_over; std::this_thread::sleep_for(std::chrono::milliseconds(100)))
            say(fd, "x");
    };
    const auto flood = [](int fd) {
        while (!call_is_over)
            say(fd, std::string(65536, 'x'));
    };
    for (const auto &[what, result, seconds, talk] :
         std::initializer_list<std::tuple<const char *, int, double, std::function<void(int)>>>{
             {"drips", -ETIMEDOUT, 29, [&](int fd) { read_line(fd), drip(fd); }},
             {"drips after the echo", -ETIMEDOUT, 29, [&](int fd) { say(fd, read_line(fd)), drip(fd); }},
             {"floods", -ETIMEDOUT, 0, [&](int fd) { read_line(fd), flood(fd); }}}) {
        const Outcome outcome = run(talk);
        EXPECT_EQ(outcome.result, result) << what;
        EXPECT_GE(outcome.seconds, seconds) << what;
        EXPECT_LT(outcome.seconds, 60) << what;
    }
    const auto flood_in_return = [&](int fd) {
        say(fd, read_line(fd) + "BCM.0> ");
        say(fd, read_line(fd));
        flood(fd);
    };
    const Outcome outcome = run(flood_in_return);
    EXPECT_EQ(outcome.result, -ETIMEDOUT) << "floods its output";
    EXPECT_GT(outcome.out.size(), 4'000'000u);
    EXPECT_LE(outcome.out.size(), 4'194'304u);
    const auto flood_and_take_nothing = [&](int fd) {
        say(fd, read_line(fd) + "BCM.0> ");
        std::this_thread::sleep_for(std::chrono::milliseconds(500)); // until the command is being sent
        flood(fd);
    };
    EXPECT_EQ(run(flood_and_take_nothing, std::string(20'000'000, 'c')).result, -EIO);
}

// The connection is never accepted, and the listener's queue is full.
TEST(Bcmdiag, WaitsThreeSecondsForAConnection)
{
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 0), 0);
    getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length);
    int queued[2];
    for (int &each : queued) {
        each = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        static_cast<void>(!connect(each, reinterpret_cast<sockaddr *>(&address), sizeof address));
    }
    const uint16_t original = shell_port().host;
    shell_port().host = ntohs(address.sin_port);
    expect_in_each({{"nothing", [] {}}, kTicking}, [] {
        const double begin = board_seconds();
        const int result = telnet_bcmdiag(nullptr, "x");
        const double took = board_seconds() - begin;
        return result == -ETIMEDOUT && took >= 2.9 && took < 60
                   ? ""
                   : std::to_string(result) + " after " + std::to_string(took) + " s";
    });
    shell_port().host = original;
    for (const int each : queued)
        close(each);
    close(listener);
    expect_in_each({kTicking}, [] { return telnet_bcmdiag(nullptr, "x") == 0 ? "" : "not with the board's shell"; });
}

// The shell closes after this many bytes of its output.
TEST(Bcmdiag, SurvivesAShellThatClosesAnywhere)
{
    signal(SIGPIPE, SIG_DFL); // the default, with which a SIGPIPE would end this process
    const std::string conversation = "BCM.0> exit;\r\nBCM.0> show c\r\nline\r\nBCM.0> echo $?\r\n0\r\nBCM.0> ";
    for (const bool reset : {false, true}) {
        for (size_t bytes = 0; bytes < conversation.size(); ++bytes) {
            const int result = run([&](int fd) {
                                   size_t said = 0;
                                   const auto go_on = [&](size_t until) {
                                       const size_t end = std::min(until, bytes);
                                       if (end > said)
                                           say(fd, conversation.substr(said, end - said));
                                       said = std::max(said, end);
                                       return end == until;
                                   };
                                   // Each answer follows its line, as from a real shell.
                                   const bool all = go_on(7) && !read_line(fd).empty() && go_on(21) &&
                                                    !read_line(fd).empty() && go_on(42) && !read_line(fd).empty();
                                   go_on(conversation.size());
                                   if (reset) {
                                       const linger hard{1, 0};
                                       setsockopt(fd, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
                                   }
                                   static_cast<void>(all);
                               }).result;
            EXPECT_TRUE(result == -ENETDOWN || result == -EPIPE || result == -ECONNRESET)
                << bytes << (reset ? " bytes, reset: " : " bytes, closed: ") << result;
        }
    }
}

TEST(Bcmdiag, ReportsRefusalsOfTheSystem)
{
    const Fault socket_fault("socket:* errno=EMFILE");
    LogWatch log;
    EXPECT_EQ(telnet_bcmdiag(nullptr, "x"), -EMFILE);
    EXPECT_NE(log.take().at(0).find("ERROR: socket Too many open files"), std::string::npos);

    const uint16_t original = shell_port().host;
    shell_port().host = 1; // a port without a listener
    EXPECT_EQ(telnet_bcmdiag(nullptr, "x"), -ECONNREFUSED);
    EXPECT_NE(log.take().at(0).find("ERROR: connect Connection refused"), std::string::npos);
    shell_port().host = original;
}

// The lines go only to the system log, with a separate prefix and as messages of a user's program.
TEST(Bcmdiag, LogsInASeparateFormat)
{
    ctl("switch-shell answer 3");
    testing::internal::CaptureStderr();
    LogWatch log;
    EXPECT_EQ(telnet_bcmdiag(nullptr, "x"), 3);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    const std::vector<std::string> lines = log.take();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(std::regex_match(lines[0], std::regex("(3|11) command_result:\\d+:ERROR: diag command returned: 3")))
        << lines[0];
    ctl("switch-shell answer 0");
}
