// ddalctl rfcard as a user runs it: its output, its last line, and its handling of Ctrl-C.
#include <csignal>
#include <future>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "rf_card/card.h"
#include "tools/ddalctl.h"

using namespace testing_rf_card;
using namespace testing_board;

namespace {

constexpr auto kSecond = std::chrono::seconds(1);

bool has(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

} // namespace

TEST(Rfcard, UpgradesVerifiesAndShowsTheVersion)
{
    reset_card();
    const std::string file = image("small.txt");
    Finished run = ddalctl("rfcard upgrade " + file);
    EXPECT_EQ(run.status, 0) << run.err;
    for (const char *part :
         {"starting the loader\n", "erasing: 760 of 760 bytes\n", "programming: 250 of 760 bytes",
          "verifying: 760 of 760 bytes\n", "starting the application\n", "programmed and verified", "ready"})
        EXPECT_TRUE(has(run.out, part)) << part << "\n" << run.out;

    const Json again = ddalctl_json("rfcard upgrade " + file);
    EXPECT_EQ(again.at("verdict"), "the flash already holds this image");
    EXPECT_EQ(again.at("programmed"), 0);
    EXPECT_EQ(ddalctl_json("rfcard verify " + file).at("identical"), true);

    const Json version = ddalctl_json("rfcard version");
    EXPECT_EQ(version.at("loader"), "00083553");
    EXPECT_EQ(version.at("application"), digits(block("small-0x9000.bin")).substr(0, 16));
    EXPECT_EQ(ddalctl_json("rfcard message 0 --receive 2").at("received"), "015a");
    EXPECT_EQ(ddalctl("rfcard reset").status, 0);
}

TEST(Rfcard, ExitsWithOneWhenTheCardIsNotAsWanted)
{
    reset_card();
    const std::string broken = "/tmp/bsl-ddalctl-" + std::to_string(getpid());
    std::ofstream(broken) << "@9000\n11 zz\nq\n";
    struct Case {
        std::string fault, command, text;
    };
    for (const Case &c : {
             Case{"", "upgrade " + broken, "could not be parsed"},
             Case{"", "verify " + image("several.txt"), "the flash differs from the image"},
             Case{"fault wrong-header response 5", "upgrade " + image("small.txt"), "erasing failed"},
             Case{"fault garbled response 9", "upgrade " + image("small.txt"), "programming failed"},
             Case{"ready-time 60000", "upgrade " + image("small.txt"), "does not report ready"},
         }) {
        reset_card();
        if (!c.fault.empty())
            ctl("rf-card " + c.fault);
        const Finished run = ddalctl("rfcard " + c.command);
        EXPECT_EQ(run.status, 1) << c.command;
        EXPECT_TRUE(has(run.err, c.text)) << c.text << "\n" << run.err;
    }
    unlink(broken.c_str());
    EXPECT_EQ(ddalctl("rfcard message 0 --receive 253").status, 2);
}

namespace {

// An upgrade that stops at the erase phase, reports it and waits until it may continue.
struct Halted {
    std::promise<void> reached;
    std::promise<void> released;

    static void halt(void *context, ddal_ext_rfcard_phase phase, uint32_t done, uint32_t)
    {
        auto *self = static_cast<Halted *>(context);
        if (phase != DDAL_EXT_RFCARD_ERASE || done != 0)
            return;
        self->reached.set_value();
        self->released.get_future().wait();
    }
};

} // namespace

TEST(Rfcard, HasOneUserAtATime)
{
    reset_card();
    Halted halted;
    auto upgrading =
        std::async(std::launch::async, [&] { return upgrade(image("small.txt"), 0, Halted::halt, &halted); });
    halted.reached.get_future().wait();

    // Another process, another thread and another open file of this process. All are refused before they touch the
    // card.
    const std::string holder = "RF card is in use by process " + std::to_string(getpid()) + "\n";
    for (const std::string &command :
         std::vector<std::string>{"version", "reset", "verify " + image("small.txt"), "upgrade " + image("b250.txt")}) {
        const Finished run = ddalctl("rfcard " + command);
        EXPECT_EQ(run.status, 1) << command;
        EXPECT_TRUE(has(run.err, holder) && has(run.err, "another process is working on the RF card")) << run.err;
    }
    EXPECT_EQ(ddalctl_json("rfcard version").at("error").at("name"), "EBUSY");
    {
        const QuietErrors quiet;
        uint8_t loader[4], application[8];
        EXPECT_EQ(ddal_ext_rfcard_version(loader, application, 0), -EBUSY);
        EXPECT_EQ(bsl_set_uart_speed(open("/dev/ttyFPGA3", O_RDWR | O_NOCTTY | O_CLOEXEC), 9600), -EBUSY);
    }
    EXPECT_EQ(card_state("mode"), "loader");
    halted.released.set_value();
    const Upgrade done = upgrading.get();
    EXPECT_EQ(done.result, 0);
    EXPECT_EQ(done.status, BSL_STATUS_SUCCESSFUL);
    EXPECT_EQ(flash(0x9000, 300), digits(block("small-0x9000.bin")));

    // A killed process no longer holds the card.
    const pid_t child = fork();
    if (child == 0) {
        upgrade(image("several.txt"), 0, [](void *, ddal_ext_rfcard_phase, uint32_t, uint32_t bytes) {
            if (bytes != 0)
                raise(SIGKILL);
        });
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(ddalctl("rfcard reset").status, 0);
}

TEST(Rfcard, RefusesCtrlCWhileTheFlashIsBeingWritten)
{
    reset_card();
    ctl("rf-card pace on"); // 4 s of erasing, 14 s of programming
    const std::vector<std::string> words =
        words_of(std::string(DDALCTL_PROGRAM) + " rfcard upgrade " + image("64k.txt"));
    const Finished run = run_and_signal(words, 9 * kSecond, SIGINT);
    ctl("rf-card pace off");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(has(run.out, "not now")) << run.out;
    EXPECT_TRUE(has(run.out, "s left")) << run.out;
    EXPECT_TRUE(has(run.out, "programmed and verified")) << run.out;
    EXPECT_EQ(flash(0x9000, 65536), digits(block("64k-0x9000.bin")));

    // Before the erase Ctrl-C ends the upgrade, which then prints how to restart the card.
    reset_card();
    ctl("rf-card fault silence ack 1");
    const Finished ended = run_and_signal(words, 5 * kSecond, SIGINT);
    EXPECT_EQ(ended.status, 128 + SIGINT);
    EXPECT_TRUE(has(ended.out, "ddalctl rfcard reset")) << ended.out;
    EXPECT_EQ(card_state("mode"), "loader");
    EXPECT_EQ(ddalctl("rfcard reset").status, 0);
    EXPECT_EQ(card_state("mode"), "application");
}
