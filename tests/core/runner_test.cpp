#include <ddal/common.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "core/process.h"
#include "support/in_child.h"
#include "support/surroundings.h"
#include "temporary_directory.h"

using namespace std::chrono_literals;
using testing_board::expect_in_each;
using testing_board::start_child;
using testing_board::wait_for_child;

namespace {

using Stream = std::unique_ptr<FILE, int (*)(FILE *)>;

Stream stream_of(const std::string &content)
{
    Stream stream(tmpfile(), fclose);
    fwrite(content.data(), 1, content.size(), stream.get());
    rewind(stream.get());
    return stream;
}

std::string content_of(FILE *stream)
{
    std::string content(static_cast<size_t>(ftell(stream)), ' ');
    rewind(stream);
    EXPECT_EQ(fread(content.data(), 1, content.size(), stream), content.size());
    return content;
}

// The three arguments of a shell that runs `command`.
struct Shell {
    explicit Shell(const char *command) : argv{nullptr, const_cast<char *>("-c"), const_cast<char *>(command), nullptr}
    {
    }
    char *argv[4];
    const char *path = "/bin/sh";
};

// Each of the four runners with the same command. Input and output are discarded.
const std::pair<const char *, std::function<int(const char *, char **)>> kRunners[] = {
    {"plain", _ddal_common_shell_command},
    {"read",
     [](const char *path, char **argv) {
         char text[64];
         return _ddal_common_shell_command_read(sizeof text, text, path, argv);
     }},
    {"write", [](const char *path,
                 char **argv) { return _ddal_common_shell_command_write_fp(stream_of("").get(), 0, path, argv); }},
    {"read and write",
     [](const char *path, char **argv) {
         return _ddal_common_shell_command_read_write_fp(stream_of("").get(), 0, stream_of("").get(), path, argv);
     }},
};

std::string output_of(const char *command)
{
    char text[4096];
    EXPECT_EQ(ddal_common_read_cmd_output(sizeof text, text, command), 0) << command;
    return text;
}

TEST(Runner, MapsTheEndOfTheChild)
{
    const struct {
        const char *command;
        int result;
        const char *line;
    } cases[] = {{"exit 0", 0, ""},
                 {"exit 3", 3, ""},
                 {"exit 255", 255, ""},
                 {"kill -9 $$", -EINTR, "('/bin/sh') interrupted\n"}};
    for (const auto &[name, run] : kRunners) {
        for (const auto &c : cases) {
            SCOPED_TRACE(std::string(name) + ": " + c.command);
            Shell shell(c.command);
            testing::internal::CaptureStderr();
            EXPECT_EQ(run(shell.path, shell.argv), c.result);
            const std::string log = testing::internal::GetCapturedStderr();
            EXPECT_TRUE(*c.line ? log.ends_with(c.line) : log.empty()) << log;
            EXPECT_STREQ(shell.argv[0], "sh");
        }
        Shell shell("");
        EXPECT_EQ(run("/bin/no-such-program", shell.argv), 127) << name;
        EXPECT_STREQ(shell.argv[0], "no-such-program");
    }
}

// Returns the wrong results of all runners, for programs that end in every way.
std::string wrong_results()
{
    const struct {
        const char *path, *command;
        int result;
    } cases[] = {{"/bin/sh", "exit 0", 0},
                 {"/bin/sh", "exit 3", 3},
                 {"/bin/no-such-program", "", 127},
                 {"/bin/sh", "kill -9 $$", -EINTR},
                 {"/bin/sh", "{ sleep 0.05; kill -CONT $$; } & kill -STOP $$; exit 4", 4}};
    std::string wrong;
    for (const auto &[name, run] : kRunners) {
        for (const auto &c : cases) {
            Shell shell(c.command);
            if (const int result = run(c.path, shell.argv); result != c.result)
                wrong += std::string(name) + ", " + c.command + ": " + std::to_string(result) + "\n";
        }
    }
    return wrong;
}

TEST(Runner, KnowsHowAChildEndedDespiteReaping)
{
    expect_in_each(testing_board::kReaping, wrong_results);
    EXPECT_EQ(wait_for_child(start_child([] { // as inherited from a program that has executed this one
                  signal(SIGCHLD, SIG_IGN);
                  unsetenv("GTEST_OUTPUT"); // the report is the parent's
                  return execl("/proc/self/exe", "again", "--gtest_filter=Runner.MapsTheEndOfTheChild", nullptr);
              })),
              0);
    static volatile sig_atomic_t told = 0;
    expect_in_each({{"nothing", [] { testing_board::handle(SIGCHLD, [](int) { told = 1; }); }}}, [] {
        std::string wrong = wrong_results();
        return wrong += told ? "the caller was told of a child" : "";
    });
}

// Checks a program's input and output while a signal arrives every millisecond and the pipes are slow.
TEST(Runner, SignalsDoNotCutAJobShort)
{
    std::string text;
    for (int line = 0; text.size() < 3U << 20; ++line)
        text += std::to_string(line) + "\n";
    const TemporaryDirectory directory;
    expect_in_each({testing_board::kTicking}, [&] {
        std::string wrong = wrong_results();

        const std::string command = "{ sleep 0.1; cat; } > " + directory / "fed";
        Shell writer(command.c_str());
        const Stream in = stream_of(text);
        if (_ddal_common_shell_command_write_fp(in.get(), 0, writer.path, writer.argv) != 0 ||
            directory.get("fed") != text)
            wrong += "not all was fed\n";

        std::string got(200000, ' ');
        if (ddal_common_read_cmd_output(
                got.size() + 1, got.data(),
                "for i in 1 2 3 4; do sleep 0.02; head -c 50000 /dev/zero | tr '\\0' x; done") != 0 ||
            got != std::string(200000, 'x'))
            wrong += "not all was captured\n";

        int ends[2];
        if (pipe(ends) != 0)
            return wrong + "no pipe\n";
        std::string passed;
        std::thread reader([&] {
            sigset_t all;
            sigfillset(&all);
            pthread_sigmask(SIG_SETMASK, &all, nullptr);
            char block[4096];
            for (ssize_t n; (n = read(ends[0], block, sizeof block)) > 0; usleep(300))
                passed.append(block, static_cast<size_t>(n));
        });
        Stream out(fdopen(ends[1], "w"), fclose);
        Shell cat("cat; exit 6");
        rewind(in.get());
        if (_ddal_common_shell_command_read_write_fp(in.get(), 0, out.get(), cat.path, cat.argv) != 6)
            wrong += "not passed on\n";
        testing_board::end_ticking();
        out.reset();
        reader.join();
        return wrong + (passed == text ? "" : "not all was passed on\n");
    });
}

TEST(Runner, CapturesTextUpToTheBuffer)
{
    const struct {
        const char *command;
        size_t size;
        int result;
        const char *text;
    } cases[] = {{"echo hello", 16, 0, "hello\n"},
                 {"echo hello", 7, 0, "hello\n"},
                 {"echo hello", 6, -ENOBUFS, "hello"},
                 {"echo hello", 1, -ENOBUFS, ""},
                 {"true", 1, 0, ""},
                 {"printf out; exit 4", 16, 4, "out"},
                 {"yes | head -c 1000000; exit 4", 4, -ENOBUFS, "y\ny"},
                 {"cat", 16, 0, ""}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.command);
        char text[16] = "###############";
        EXPECT_EQ(ddal_common_read_cmd_output(c.size, text, c.command), c.result);
        EXPECT_STREQ(text, c.text);
    }
}

TEST(Runner, AProgramWithTooMuchOutputStillCompletes)
{
    const TemporaryDirectory directory;
    const std::string command = "head -c 1000000 /dev/zero && touch " + directory / "done";
    char text[4];
    EXPECT_EQ(ddal_common_read_cmd_output(sizeof text, text, command.c_str()), -ENOBUFS);
    EXPECT_TRUE(std::filesystem::exists(directory / "done"));
}

TEST(Runner, FeedsTheInputAndANewlineOnRequest)
{
    const std::string text(100000, 'x');
    for (const unsigned flags : {0U, 1U, 2U, 3U}) {
        const std::string expected = text + (flags & 1 ? "\n" : "");
        const Stream in = stream_of("skipped" + text);
        const Stream out = stream_of("");
        ASSERT_EQ(fseek(in.get(), 7, SEEK_SET), 0);
        Shell cat("cat; exit 6");
        EXPECT_EQ(_ddal_common_shell_command_read_write_fp(in.get(), flags, out.get(), cat.path, cat.argv), 6);
        EXPECT_EQ(content_of(out.get()), expected);

        const TemporaryDirectory directory;
        const std::string command = "cat > " + directory / "fed";
        Shell writer(command.c_str());
        ASSERT_EQ(fseek(in.get(), 7, SEEK_SET), 0);
        EXPECT_EQ(_ddal_common_shell_command_write_fp(in.get(), flags, writer.path, writer.argv), 0);
        EXPECT_EQ(directory.get("fed"), expected);
    }
}

TEST(Runner, MovesMuchBothWaysAtOnce)
{
    std::string text;
    for (int line = 0; text.size() < 64U << 20; ++line)
        text += std::to_string(line) + "\n";
    const Stream in = stream_of(text);
    const Stream out = stream_of("");
    Shell filter("cat");
    ASSERT_EQ(_ddal_common_shell_command_read_write_fp(in.get(), 0, out.get(), filter.path, filter.argv), 0);
    EXPECT_TRUE(content_of(out.get()) == text);
}

// Writing to a child that has ended fails with EPIPE. The caller's handling of SIGPIPE is unchanged.
TEST(Runner, SurvivesAChildThatIgnoresItsInput)
{
    const std::string text(1 << 20, 'x');
    for (const bool pending : {false, true}) {
        EXPECT_EQ(wait_for_child(start_child([&] {
                      signal(SIGPIPE, SIG_DFL);
                      sigset_t sigpipe;
                      sigset_t before;
                      sigset_t after;
                      sigemptyset(&sigpipe);
                      sigaddset(&sigpipe, SIGPIPE);
                      pthread_sigmask(SIG_SETMASK, nullptr, &before);
                      if (pending) {
                          pthread_sigmask(SIG_BLOCK, &sigpipe, &before);
                          raise(SIGPIPE);
                          sigaddset(&before, SIGPIPE);
                      }
                      for (const char *command : {"exit 5", "exec <&-; sleep 0.05; exit 5"}) {
                          Shell shell(command);
                          const Stream in = stream_of(text);
                          const Stream out = stream_of("");
                          if (_ddal_common_shell_command_write_fp(in.get(), 0, shell.path, shell.argv) != -EPIPE)
                              return 1;
                          rewind(in.get());
                          if (_ddal_common_shell_command_read_write_fp(in.get(), 0, out.get(), shell.path,
                                                                       shell.argv) != -EPIPE)
                              return 2;
                      }
                      pthread_sigmask(SIG_SETMASK, nullptr, &after);
                      for (int number = 1; number < NSIG; ++number) {
                          if (sigismember(&before, number) != sigismember(&after, number))
                              return 3;
                      }
                      sigpending(&after);
                      return sigismember(&after, SIGPIPE) == pending ? 0 : 4;
                  })),
                  0)
            << (pending ? "with" : "without") << " a signal pending";
    }
}

TEST(Runner, AFailingOutputStopsTheChild)
{
    const Stream in = stream_of("");
    const Stream full(fopen("/dev/full", "w"), fclose);
    Shell endless("yes");
    EXPECT_EQ(_ddal_common_shell_command_read_write_fp(in.get(), 0, full.get(), endless.path, endless.argv), -ENOSPC);
}

TEST(Runner, KeepsTheStateOfTheCallerFromTheChild)
{
    std::vector<int> inherited;
    for (int i = 0; i < 300; ++i) // more than one listing of /proc/self/fd can hold
        inherited.push_back(dup(STDERR_FILENO));
    inherited.push_back(fcntl(STDERR_FILENO, F_DUPFD, 1000));
    std::atomic<bool> done{false};
    std::thread opener([&] {
        while (!done)
            close(dup(STDERR_FILENO));
    });
    struct sigaction handled = {};
    struct sigaction old_user;
    handled.sa_handler = [](int) {};
    sigaction(SIGUSR1, &handled, &old_user);
    const auto old_quit = signal(SIGQUIT, SIG_IGN);
    sigset_t blocked;
    sigset_t old_mask;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, &old_mask);

    for (int i = 0; i < 50; ++i) {
        // Descriptor 3 belongs to the listing itself.
        EXPECT_EQ(output_of("cd /proc/self/fd; echo *"), "0 1 2 3\n");
        EXPECT_EQ(output_of("exec cat /proc/self/status | grep -cE 'Sig(Blk|Ign|Cgt):\\s0+$'"), "3\n");
    }

    pthread_sigmask(SIG_SETMASK, &old_mask, nullptr);
    signal(SIGQUIT, old_quit);
    sigaction(SIGUSR1, &old_user, nullptr);
    done = true;
    opener.join();
    for (const int fd : inherited)
        close(fd);
}

TEST(Runner, WorksWithoutStandardStreams)
{
    for (int closed = 1; closed < 8; ++closed) {
        const int result = wait_for_child(start_child([closed] {
            for (int fd = 0; fd < 3; ++fd) {
                if (closed & 1 << fd)
                    close(fd);
            }
            char text[64];
            if (ddal_common_read_cmd_output(sizeof text, text, "echo out; echo err >&2") != 0 ||
                strcmp(text, "out\n") != 0)
                return 1;
            Shell cat("cat");
            FILE *in = fmemopen(const_cast<char *>("fed"), 3, "r");
            FILE *out = fmemopen(text, sizeof text, "w");
            if (_ddal_common_shell_command_read_write_fp(in, 0, out, cat.path, cat.argv) != 0)
                return 2;
            fclose(out);
            return strcmp(text, "fed") == 0 ? 0 : 3;
        }));
        EXPECT_EQ(result, 0) << "closed: " << closed;
    }
}

// A program that holds a FIFO open while it runs: its end shows there.
class LongProgram {
public:
    LongProgram() : fifo_(directory_ / "fifo")
    {
        mkfifo(fifo_.c_str(), 0600);
        reader_ = open(fifo_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        command_ = "exec 9>" + fifo_ + "; echo >&9; exec sleep 30";
    }
    LongProgram(const LongProgram &) = delete;
    LongProgram &operator=(const LongProgram &) = delete;
    ~LongProgram() { close(reader_); }

    int run(const std::function<int(const char *, char **)> &runner) const
    {
        Shell shell(command_.c_str());
        return runner(shell.path, shell.argv);
    }
    bool starts() const { return shows(POLLIN) && read(reader_, std::string(1, 0).data(), 1) == 1; }
    bool ends() const { return shows(POLLHUP); }

private:
    bool shows(short event) const
    {
        pollfd program = {reader_, POLLIN, 0};
        return poll(&program, 1, 5000) == 1 && program.revents & event;
    }

    TemporaryDirectory directory_;
    std::string fifo_;
    std::string command_;
    int reader_;
};

TEST(Runner, TheChildDiesWithTheCaller)
{
    const LongProgram program;
    const pid_t caller = start_child([&] { return program.run(_ddal_common_shell_command); });
    EXPECT_TRUE(program.starts());
    kill(caller, SIGKILL);
    EXPECT_EQ(wait_for_child(caller), -SIGKILL);
    EXPECT_TRUE(program.ends());
}

TEST(Runner, TheChildDiesWithItsSupervisor)
{
    for (const auto &[name, run] : kRunners) {
        const LongProgram program;
        const std::string children = "/proc/self/task/" + std::to_string(gettid()) + "/children";
        std::thread killer([&] {
            EXPECT_TRUE(program.starts());
            pid_t supervisor = -1;
            std::ifstream(children) >> supervisor;
            if (supervisor > 0)
                kill(supervisor, SIGKILL);
        });
        EXPECT_EQ(program.run(run), -EINTR) << name;
        killer.join();
        EXPECT_TRUE(program.ends()) << name;
    }
}

TEST(Runner, AThousandRunsLeaveNothing)
{
    const auto before = open_descriptors();
    for (int i = 0; i < 1000; ++i) {
        const auto &[name, run] = kRunners[i % std::size(kRunners)];
        char *argv[] = {nullptr, nullptr, nullptr};
        ASSERT_EQ(run(i % 10 == 9 ? "/bin/no-such-program" : "/bin/true", argv), i % 10 == 9 ? 127 : 0) << name;
    }
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG | __WALL), -1);
    EXPECT_EQ(errno, ECHILD);
}

} // namespace
