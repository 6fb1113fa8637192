// Processes with closed standard streams or cancelled threads.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <mntent.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <ddal/common.h>

#include "core/atomic_file.h"
#include "core/foreign_call.h"
#include "core/unique_fd.h"
#include "core/unique_stream.h"
#include "support/surroundings.h"
#include "temporary_directory.h"

using namespace std::chrono_literals;
using ddal::core::AtomicFile;
using ddal::core::ForeignCall;
using ddal::core::UniqueFd;
using ddal::core::UniqueStream;
using testing_board::in_child;

namespace {

bool is_open(int fd)
{
    return fcntl(fd, F_GETFD) >= 0;
}

void close_standard_streams(int which)
{
    for (int fd = 0; fd < 3; ++fd) {
        if (which & 1 << fd)
            close(fd);
    }
}

bool are_closed(int which)
{
    for (int fd = 0; fd < 3; ++fd) {
        if (which & 1 << fd && is_open(fd))
            return false;
    }
    return true;
}

std::string fault_of(int fd)
{
    if (fd < 0)
        return strerror(errno);
    if (fd < 3)
        return "number " + std::to_string(fd);
    return fcntl(fd, F_GETFD) & FD_CLOEXEC ? "" : "stays open on exec";
}

// These calls go through the library's stand-ins, with which this program is linked.
const std::pair<const char *, std::function<std::string()>> kOpeners[] = {
    {"open", [] { return fault_of(UniqueFd(open("/dev/null", O_RDWR | O_CLOEXEC)).get()); }},
    {"openat", [] { return fault_of(UniqueFd(openat(AT_FDCWD, "/dev/null", O_RDWR | O_CLOEXEC)).get()); }},
    {"socket", [] { return fault_of(UniqueFd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)).get()); }},
    {"eventfd", [] { return fault_of(UniqueFd(eventfd(0, EFD_CLOEXEC)).get()); }},
    {"pipe2",
     [] {
         int ends[2] = {-1, -1};
         if (pipe2(ends, O_CLOEXEC) != 0)
             return fault_of(-1);
         const UniqueFd in(ends[0]);
         const UniqueFd out(ends[1]);
         return fault_of(ends[0]) + fault_of(ends[1]);
     }},
    {"fopen",
     [] {
         const UniqueStream stream(fopen("/dev/null", "we"));
         if (!stream)
             return fault_of(-1);
         if (fputs("text", stream.get()) < 0 || fflush(stream.get()) != 0)
             return std::string("cannot be written to");
         return fault_of(fileno(stream.get()));
     }},
    {"setmntent",
     [] {
         FILE *const table = setmntent("/proc/self/mounts", "re");
         if (!table)
             return fault_of(-1);
         const std::string fault = getmntent(table) ? fault_of(fileno(table)) : "cannot be read";
         endmntent(table);
         return fault;
     }},
    {"opendir",
     [] {
         DIR *const directory = opendir("/");
         if (!directory)
             return fault_of(-1);
         const std::string fault = readdir(directory) ? fault_of(dirfd(directory)) : "cannot be read";
         closedir(directory);
         return fault;
     }},
};

} // namespace

TEST(StandardStreams, NothingOpensUnderTheirNumbers)
{
    for (int closed = 1; closed < 8; ++closed) {
        for (const auto &[name, opener] : kOpeners) {
            EXPECT_EQ(in_child([&opener = opener, closed]() -> std::string {
                          close_standard_streams(closed);
                          const auto before = open_descriptors();
                          std::string faults;
                          for (int i = 0; i < 2; ++i) // the first low number makes the library careful
                              faults += opener();
                          if (!are_closed(closed) || open_descriptors() != before)
                              faults += "left something open";
                          return faults;
                      }),
                      "")
                << name << ", closed: " << closed;
        }
    }
}

TEST(StandardStreams, NothingOpensWhereOnlyTheirNumbersAreLeft)
{
    for (const auto &[name, opener] : kOpeners) {
        EXPECT_EQ(in_child([&opener = opener] {
                      const rlimit few{64, 64};
                      setrlimit(RLIMIT_NOFILE, &few);
                      while (dup(STDERR_FILENO) >= 0) {
                      }
                      close_standard_streams(3);
                      const std::string fault = opener() + (are_closed(3) ? "" : ", left open");
                      for (int fd = 32; fd < 64; ++fd)
                          close(fd);
                      return fault;
                  }),
                  strerror(EMFILE))
            << name;
    }
}

TEST(StandardStreams, ForeignCallsFindTheirNumbersTaken)
{
    for (int closed = 1; closed < 8; ++closed) {
        EXPECT_EQ(in_child([closed]() -> std::string {
                      const UniqueFd file(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 10));
                      close_standard_streams(closed);
                      {
                          const ForeignCall outer;
                          {
                              const ForeignCall inner;
                          }
                          if (!is_open(0) || !is_open(1) || !is_open(2))
                              return "a number is free";
                          if (closed & 4 && (write(2, "x", 1) != -1 || errno != EBADF))
                              return "a log line goes somewhere";
                          if (in_child([closed] { return std::string(are_closed(closed) ? "" : "taken"); }) != "")
                              return "a number is taken in a child";
                      }
                      if (!are_closed(closed))
                          return "a number stays taken";
                      {
                          const ForeignCall call;
                          dup2(file.get(), 0);
                      }
                      return is_open(0) ? "" : "closed what the application has put there";
                  }),
                  "")
            << "closed: " << closed;
    }
}

TEST(Signals, CutNoOpeningShort)
{
    const TemporaryDirectory directory;
    const std::string fifo = directory / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::pair<const char *, std::function<std::string()>> openers[] = {
        {"open", [&] { return fault_of(UniqueFd(open(fifo.c_str(), O_WRONLY | O_CLOEXEC)).get()); }},
        {"openat", [&] { return fault_of(UniqueFd(openat(AT_FDCWD, fifo.c_str(), O_WRONLY | O_CLOEXEC)).get()); }},
        {"fopen",
         [&] {
             const UniqueStream stream(fopen(fifo.c_str(), "we"));
             return fault_of(stream ? fileno(stream.get()) : -1);
         }},
    };
    for (const auto &[name, opener] : openers) {
        SCOPED_TRACE(name);
        testing_board::expect_in_each({testing_board::kTicking}, [&, &opener = opener] {
            const pid_t reader = testing_board::start_child([&] {
                std::this_thread::sleep_for(50ms);
                return UniqueFd(open(fifo.c_str(), O_RDONLY | O_CLOEXEC)) ? 0 : 1;
            });
            const std::string fault = opener();
            testing_board::end_ticking();
            if (!fault.empty())
                kill(reader, SIGKILL);
            testing_board::wait_for_child(reader);
            return fault;
        });
    }
}

namespace {

// Cancels a thread while `work` is under way.
class Cancelled {
public:
    explicit Cancelled(std::function<int()> work) : work_(std::move(work))
    {
        pthread_create(&thread_, nullptr, run, this);
        while (!started_)
            std::this_thread::sleep_for(1ms);
        std::this_thread::sleep_for(50ms);
        pthread_cancel(thread_);
    }

    // Returns the result of the work. The work runs to its end; the thread ends at its next cancellation point.
    int result()
    {
        void *end = nullptr;
        pthread_join(thread_, &end);
        EXPECT_EQ(end, PTHREAD_CANCELED);
        return result_;
    }

private:
    static void *run(void *argument)
    {
        auto *const self = static_cast<Cancelled *>(argument);
        self->started_ = true;
        self->result_ = self->work_();
        pthread_testcancel();
        return nullptr;
    }

    std::function<int()> work_;
    std::atomic<bool> started_{false};
    int result_ = -9999;
    pthread_t thread_{};
};

int for_a_while(const std::function<int()> &work)
{
    const auto end = std::chrono::steady_clock::now() + 150ms;
    int result = 0;
    while (result == 0 && std::chrono::steady_clock::now() < end)
        result = work();
    return result;
}

} // namespace

TEST(Cancellation, WaitsUntilTheCallIsOver)
{
    const TemporaryDirectory directory;
    const std::string file = directory.put("file", "7");
    const std::pair<const char *, std::function<int()>> works[] = {
        {"a program that talks",
         [] {
             char text[16];
             const int result = ddal_common_read_cmd_output(sizeof text, text, "sleep 0.2; echo out");
             return result != 0 ? result : strcmp(text, "out\n");
         }},
        {"a program that is fed",
         [] {
             char *argv[] = {nullptr, const_cast<char *>("-c"), const_cast<char *>("sleep 0.2; cat"), nullptr};
             const UniqueStream in(fmemopen(const_cast<char *>("fed"), 3, "r"));
             const UniqueStream out(fopen("/dev/null", "we"));
             return _ddal_common_shell_command_read_write_fp(in.get(), 0, out.get(), "/bin/sh", argv);
         }},
        {"reading",
         [&] {
             return for_a_while([&] { return ddal_common_read_string(8, std::string(8, 0).data(), file.c_str()); });
         }},
        {"writing", [&] { return for_a_while([&] { return ddal_common_write_string("8", file.c_str()); }); }},
        {"replacing",
         [&] {
             return for_a_while([&] {
                 AtomicFile made(file.c_str(), "r+");
                 return made ? made.commit() : -errno;
             });
         }},
    };
    for (const auto &[name, work] : works) {
        SCOPED_TRACE(name);
        const auto before = open_descriptors();
        EXPECT_EQ(Cancelled(work).result(), 0);
        EXPECT_EQ(open_descriptors(), before);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
    }
    EXPECT_EQ(directory.names(), std::set<std::string>{"file"});

    // Behind the lock of another: the awaited work is done, and the lock is released.
    UniqueFd other(open(file.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(flock(other.get(), LOCK_EX), 0);
    Cancelled writer([&] {
        AtomicFile made(file.c_str(), "w");
        fputs("9", made.writer());
        return made.commit();
    });
    other.reset();
    EXPECT_EQ(writer.result(), 0);
    EXPECT_EQ(directory.get("file"), "9");
    other.reset(open(file.c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(flock(other.get(), LOCK_EX | LOCK_NB), 0);
}
