// Loading the library on a machine that is not a board.
#include <array>
#include <csignal>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Outcome {
    int status;
    std::string said;
};

Outcome load_library()
{
    int ends[2];
    if (pipe(ends) != 0)
        return {-1, "no pipe"};
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(ends[1], STDERR_FILENO);
        _exit(dlopen("libddal.so.1", RTLD_NOW) ? 0 : 1);
    }
    close(ends[1]);
    Outcome outcome{};
    std::array<char, 256> bytes;
    for (ssize_t n; (n = read(ends[0], bytes.data(), bytes.size())) > 0;)
        outcome.said.append(bytes.data(), static_cast<size_t>(n));
    close(ends[0]);
    waitpid(pid, &outcome.status, 0);
    return outcome;
}

void expect_abort_saying(const std::string &text)
{
    const Outcome outcome = load_library();
    EXPECT_TRUE(WIFSIGNALED(outcome.status) && WTERMSIG(outcome.status) == SIGABRT) << outcome.status;
    EXPECT_NE(outcome.said.find(text), std::string::npos) << outcome.said;
}

TEST(Loading, AbortsWithoutTheFrameDevice)
{
    expect_abort_saying("driver open failed: No such file or directory\n");
}

// The machine was started with this counter frequency and with the frame device.
TEST(Loading, AbortsAtAnotherFrequency)
{
    ASSERT_EQ(access("/dev/fpga_frame", R_OK), 0);
    expect_abort_saying("Update ddal_sfn_get_bcn for different cpu counter frequency 100000000\n");
}

} // namespace
