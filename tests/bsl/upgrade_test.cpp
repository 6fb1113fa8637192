// The whole upgrade against the microcontroller's model: what it decides, what it does, what it says.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include <gtest/gtest.h>

#include "bsl/card.h"
#include "support/log_watch.h"
#include "support/resources.h"

using namespace testing_bsl;
using testing_board::Fault;
using testing_board::LogWatch;
using testing_board::Resources;

namespace {

using Lines = std::vector<std::string>;

const std::string kStart = "1952"
                           "11"; // version, rate, password
const std::string kEraseAndProgram = "121212"
                                     "1010101010"
                                     "161616";

Lines operator+(Lines left, const Lines &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// The file's version as the log shows it.
std::string printed(const Bytes &version)
{
    size_t start = 0;
    while (start < 6 && version[start] == 0)
        ++start;
    return digits(Bytes(version.begin() + static_cast<long>(start), version.begin() + 7)) + "." + digits({version[7]});
}

const Lines kEntered{"7 Initializing BSL... ", "7 UART opened.", "7 Putting uP in BSL mode... ",
                     "7 Current BSL version: 00.08.35.53"};
const Lines kRestarted{"7 Putting uP in app mode... ", "6 BSL: INFO: uP firmware status: 0x01, 0x5a", "7 done"};
const Lines kVerifying{"6 BSL: Verifying uP image in flash..."};

const Lines kWritten{"6 bsl_erase_image: BSL: Erasing uP flash...",
                     "6 BSL: 0x4400 - 0x45ff... ",
                     "6 BSL: done",
                     "6 BSL: 0x9000 - 0x91ff... ",
                     "6 BSL: done",
                     "6 BSL: 0xfe00 - 0xffff... ",
                     "6 BSL: done",
                     "7 BSL: Programming RF Card...",
                     "6 BSL: Writing 260 bytes to uP flash @ 0x004400",
                     "6 BSL: Writing 300 bytes to uP flash @ 0x009000",
                     "6 BSL: Writing 200 bytes to uP flash @ 0x00ff00"};

class UpgradeTest : public testing::Test {
protected:
    void SetUp() override { reset_card(); }

    const Bytes low = block("small-0x4400.bin");
    const Bytes main = block("small-0x9000.bin");
    const Bytes high = block("small-0xFF00.bin");
    const Bytes version = Bytes(main.begin(), main.begin() + 8);
    const Lines file_version{"7 BSL: image file contains uP version: " + printed(version)};
    const Lines old_version{"7 BSL: Current uP image: 010402.07"};

    void expect_image_in_flash()
    {
        EXPECT_EQ(flash(0x4400, low.size()), digits(low));
        EXPECT_EQ(flash(0x9000, main.size()), digits(main));
        EXPECT_EQ(flash(0xff00, high.size()), digits(high));
    }
};

} // namespace

TEST_F(UpgradeTest, ProgramsANewImageAndStartsIt)
{
    const Resources before;
    LogWatch log;
    EXPECT_EQ(bsl_upgrade_up_image(image("small.txt").c_str(), 0, 0), 0);
    EXPECT_EQ(log.take(), kEntered + file_version + old_version + kWritten + kVerifying +
                              Lines{"7 BSL: Codeload successful"} + kRestarted);
    EXPECT_EQ(card_commands(), kStart + "18" + kEraseAndProgram);
    EXPECT_EQ(card_state("password-length"), "10");
    EXPECT_EQ(card_state("mode"), "application");
    EXPECT_EQ(card_state("gap-violations"), "0");
    EXPECT_EQ(before.difference(), "");
    expect_image_in_flash();
}

TEST_F(UpgradeTest, WritesNothingWhenTheFlashHoldsTheImageAndEverythingWhenOneByteDiffers)
{
    ASSERT_EQ(upgrade(image("small.txt")).status, BSL_STATUS_SUCCESSFUL);
    ctl("rf-card fault clear"); // counts anew
    LogWatch log;
    Upgrade again = upgrade(image("small.txt"));
    EXPECT_EQ(again.result, 0);
    EXPECT_EQ(again.status, BSL_STATUS_NOT_REQUIRED);
    EXPECT_EQ(card_commands(), kStart + "18161616");
    EXPECT_EQ(log.take(), kEntered + file_version + Lines{"7 BSL: Current uP image: " + printed(version)} + kVerifying +
                              Lines{"7 BSL: Codeload not required"} + kRestarted);

    ctl("rf-card fault clear");
    const auto flipped = static_cast<uint8_t>(high[100] ^ 0x10);
    ctl("rf-card poke 0xff64 " + digits({flipped}));
    again = upgrade(image("small.txt"));
    EXPECT_EQ(again.result, 0);
    EXPECT_EQ(again.status, BSL_STATUS_SUCCESSFUL);
    EXPECT_EQ(card_commands(), kStart + "18161616" + kEraseAndProgram);
    const Lines lines = log.take();
    EXPECT_NE(std::find(lines.begin(), lines.end(), "3 bsl_verify_flash_image: BSL: CRC Mismatch detected on range:"),
              lines.end());
    EXPECT_NE(std::find(lines.begin(), lines.end(), "3 bsl_verify_flash_image: BSL: 0xff00 - 0xffc7... (length=0xc8)"),
              lines.end());
    expect_image_in_flash();
}

TEST_F(UpgradeTest, ForcesOnlyWithOneAndRewritesTheLoaderWithAnyOther)
{
    ASSERT_EQ(upgrade(image("small.txt")).status, BSL_STATUS_SUCCESSFUL);
    struct Case {
        int upgrade_all;
        uint32_t status;
        std::string commands;
    };
    for (const Case &c : {Case{1, BSL_STATUS_SUCCESSFUL, kStart + kEraseAndProgram + "19"},
                          Case{2, BSL_STATUS_NOT_REQUIRED,
                               kStart + "18161616"
                                        "19"},
                          Case{-1, BSL_STATUS_NOT_REQUIRED,
                               kStart + "18161616"
                                        "19"}}) {
        ctl("rf-card fault clear");
        ctl("rf-card loader-version 00083553");
        LogWatch log;
        const Upgrade done = upgrade(image("small.txt"), c.upgrade_all);
        EXPECT_EQ(done.result, 0);
        EXPECT_EQ(done.status, c.status);
        EXPECT_EQ(card_commands(), c.commands);
        EXPECT_EQ(card_state("loader"), "00093654");
        const Lines lines = log.take();
        const Lines tail{"7 Putting uP in app mode... ", "6 BSL: INFO: uP firmware status: 0x01, 0x5a", "7 done",
                         "6 BSL: INFO: uP firmware status: 0x01, 0x5a", "7 NEW BSL version: 00.09.36.54"};
        const Lines expected = tail + kRestarted;
        ASSERT_GE(lines.size(), expected.size());
        EXPECT_EQ(Lines(lines.end() - static_cast<long>(expected.size()), lines.end()), expected);
    }
}

TEST_F(UpgradeTest, TreatsALoaderThatDoesNotTellItsVersionAsOneToReplace)
{
    ctl("rf-card fault lost response 1");
    LogWatch log;
    const Upgrade done = upgrade(image("small.txt"));
    EXPECT_EQ(done.result, 0);
    EXPECT_EQ(done.status, BSL_STATUS_SUCCESSFUL);
    EXPECT_EQ(card_state("password-length"), "32");
    EXPECT_EQ(card_commands(), kStart + kEraseAndProgram + "19");
    EXPECT_EQ(card_state("loader"), "00093654");
    const Lines lines = log.take();
    EXPECT_EQ(Lines(lines.begin() + 3, lines.begin() + 7),
              (Lines{"3 bsl_rx_pkt: BSL: ERROR: Timeout waiting for hdr",
                     "3 bsl_tx_bsl_version: BSL: ERROR: No response message",
                     "3 bsl_upgrade_up_image: BSL: ERROR: Unable to read BSL version",
                     "3 bsl_upgrade_up_image: BSL: ERROR: force upgrade all: up image and BSL"}));
}

TEST_F(UpgradeTest, SendsThePasswordAgainOnceAWrongOneHasErasedTheCard)
{
    ASSERT_EQ(upgrade(image("several.txt")).result, 0);
    reset_card();
    ctl("rf-card password 0x31");
    LogWatch log;
    const Upgrade done = upgrade(image("small.txt"));
    EXPECT_EQ(done.result, 0);
    EXPECT_EQ(done.status, BSL_STATUS_SUCCESSFUL);
    EXPECT_EQ(card_commands(), kStart +
                                   "11"
                                   "18" +
                                   kEraseAndProgram);
    EXPECT_EQ(flash(0x4520, 4), "ffffffff") << "what the other image had there is gone";
    expect_image_in_flash();
    const Lines lines = log.take();
    EXPECT_EQ(Lines(lines.begin() + 4, lines.begin() + 7),
              (Lines{"3 get_bsl_resp: BSL: Received BSL Core error: PASSWORD_ERROR (0x05)",
                     "7 BSL: image file contains uP version: " + printed(version), "7 BSL: Current uP image: Blank"}));
}

TEST_F(UpgradeTest, RefusesFilesThatAreNoImage)
{
    const std::string folder = "/tmp/bsl-upgrade-" + std::to_string(getpid());
    const auto file = [&](const std::string &name, const std::string &text) {
        std::ofstream(folder + name) << text;
        return folder + name;
    };
    const std::string empty = file("empty", "");
    const std::string no_version = file("no-version", "@4400\n11 22\nq\n");
    const std::string broken = file("broken", "@9000\n11 22 zz\nq\n");
    const std::string missing = folder + "missing";
    struct Case {
        std::string path;
        int result;
        uint32_t status;
        Lines lines;
    };
    const auto refused = [](const std::string &path, int status) {
        return Lines{"3 bsl_codeload: BSL: ERROR: Unable to retrieve/parse file \"" + path +
                     "\" (error code = " + std::to_string(status) + ")"};
    };
    const std::string blank = ctl("rf-card peek 0x9000 600");
    for (const Case &c : {
             Case{empty, -1001, BSL_STATUS_EMPTY,
                  Lines{"3 bsl_prep_file: BSL: ERROR: Unable to download file"} + refused(empty, 2)},
             Case{missing, -1001, 0,
                  Lines{"3 bsl_prep_file: BSL: ERROR: Unable to open file " + missing + ": No such file or directory"} +
                      refused(missing, 0)},
             Case{no_version, -1001, 0,
                  Lines{"3 bsl_codeload: BSL: ERROR: Unable to retrieve version from file"} + refused(no_version, 0)},
         }) {
        LogWatch log;
        const Upgrade done = upgrade(c.path);
        EXPECT_EQ(done.result, c.result) << c.path;
        EXPECT_EQ(done.status, c.status) << c.path;
        EXPECT_EQ(log.take(), kEntered + c.lines + kRestarted) << c.path;
        EXPECT_EQ(card_state("mode"), "application");
    }
    // A file that is not well-formed ends as an image without any bytes; only our own operation tells.
    const Upgrade done = upgrade(broken);
    EXPECT_EQ(done.result, 0);
    EXPECT_EQ(done.status, BSL_STATUS_NOT_PARSED);
    EXPECT_EQ(ctl("rf-card peek 0x9000 600"), blank);
    for (const std::string &path : {empty, no_version, broken})
        unlink(path.c_str());
}

TEST_F(UpgradeTest, EndsWhereTheBoardItselfFails)
{
    const Lines opened{"7 Initializing BSL... ", "7 UART opened.", "7 Putting uP in BSL mode... "};
    const std::string pins = "3 bsl_drive_tst_rst: BSL: ERROR: FPGA masked write failed";
    const std::string ioctl = "3 ddal_fpga_masked_write: ioctl failed: Input/output error";
    struct Case {
        std::string fault;
        int result;
        Lines lines; // the last ones
        std::string mode;
    };
    for (const Case &c : {
             Case{"ioctl:/dev/fpga_usr nth=1 errno=EIO",
                  -1001,
                  {ioctl, "3 bsl_upgrade_up_image: Failed to turn on the RF POWER.n"},
                  "application"},
             Case{"open:/dev/pts/* nth=1 errno=ENOENT", -1001, {"7 Initializing BSL... "}, "application"},
             Case{"tcsetattr nth=1 errno=EIO", -1001, {"7 Initializing BSL... "}, "application"},
             Case{"ioctl:/dev/fpga_usr nth=2 errno=EIO", -1001,
                  opened + Lines{ioctl, pins, "3 bsl_upgrade_up_image: BSL: ERROR: Unable to gain BSL entry"},
                  "application"},
             // The early returns: the UART could not be set, which has closed it.
             Case{"tcsetattr nth=2 errno=EIO", -ECONNABORTED, kEntered, "loader"},
             Case{"tcsetattr nth=3 errno=EIO", -ECONNABORTED, {"7 BSL: Codeload successful"}, "loader"},
             // Six writes enter the loader and one switches the power: the eighth is the reset's first.
             Case{"ioctl:/dev/fpga_usr nth=8 errno=EIO",
                  0,
                  {"7 Putting uP in app mode... ", ioctl, pins, "3 bsl_app_mode: BSL: ERROR: Reset failed"},
                  "loader"},
         }) {
        SCOPED_TRACE(c.fault);
        reset_card();
        bsl_reset(-1, 0);
        const Resources before;
        LogWatch log;
        const Fault fault(c.fault);
        EXPECT_EQ(upgrade(image("small.txt")).result, c.result);
        EXPECT_EQ(fault.fired(), 1u);
        const Lines lines = log.take();
        ASSERT_GE(lines.size(), c.lines.size());
        EXPECT_EQ(Lines(lines.end() - static_cast<long>(c.lines.size()), lines.end()), c.lines);
        EXPECT_EQ(card_state("mode"), c.mode);
        EXPECT_EQ(before.difference(), "");
    }
    bsl_reset(-1, 0);
}

TEST_F(UpgradeTest, WaitsOnlySoLongForTheApplication)
{
    ctl("rf-card ready-time 60000");
    LogWatch log;
    const Upgrade done = upgrade(image("small.txt"));
    EXPECT_EQ(done.result, 0) << "a card that is not ready does not change the result";
    const Lines lines = log.take();
    const Lines expected = Lines(21, "6 BSL: INFO: uP firmware status: 0x01, 0x42") +
                           Lines{"3 wait_for_up_ready: BSL: ERROR: uP firmware did not indicate READY (status = 0x42)"};
    ASSERT_GE(lines.size(), expected.size());
    EXPECT_EQ(Lines(lines.end() - static_cast<long>(expected.size()), lines.end()), expected);

    reset_card();
    const Fault fault("ioctl:/dev/rfup-usr nth=1 errno=EIO");
    EXPECT_EQ(upgrade(image("small.txt"), 2).result, -1001);
    const Lines after = log.take();
    const Lines told{"3 ddal_rfup_msg: can't perform message operation: Input/output error",
                     "3 wait_for_up_ready: BSL: ERROR: Unable to determine uP status",
                     "3 write_bsl: BSL: ERROR: Unable to communicate with uP firmware"};
    EXPECT_NE(std::search(after.begin(), after.end(), told.begin(), told.end()), after.end());
}

namespace {

// Pokes a byte behind the library's back when a phase begins.
struct Saboteur {
    ddal_ext_rfcard_phase phase;
    std::string poke;

    static void watch(void *context, ddal_ext_rfcard_phase phase, uint32_t done, uint32_t)
    {
        const auto *self = static_cast<Saboteur *>(context);
        if (phase == self->phase && done == 0)
            ctl("rf-card poke " + self->poke);
    }
};

} // namespace

TEST_F(UpgradeTest, TellsFlashThatDoesNotTakeOrDoesNotKeepTheImage)
{
    LogWatch log;
    // A cell that is stuck at 0 shows where the image wants another value.
    const auto cell = std::find_if(low.begin(), low.end(), [](uint8_t byte) { return byte != 0; });
    const std::string address = std::to_string(0x4400 + (cell - low.begin()));
    Saboteur worn{DDAL_EXT_RFCARD_PROGRAM, address + " 00"};
    Upgrade done = upgrade(image("small.txt"), 0, Saboteur::watch, &worn);
    EXPECT_EQ(done.result, -1001);
    EXPECT_EQ(done.status, BSL_STATUS_PROGRAM_FAILED);
    Lines lines = log.take();
    EXPECT_NE(std::find(lines.begin(), lines.end(),
                        "3 get_bsl_resp: BSL: Received BSL Core error: FLASH_WRITE_CHECK_FAILED (0x01)"),
              lines.end());

    reset_card();
    log.take();
    Saboteur leaky{DDAL_EXT_RFCARD_VERIFY, address + " " + digits({static_cast<uint8_t>(~*cell)})};
    done = upgrade(image("small.txt"), 0, Saboteur::watch, &leaky);
    EXPECT_EQ(done.result, 0) << "kept: only the status tells";
    EXPECT_EQ(done.status, BSL_STATUS_MISMATCH);
    lines = log.take();
    const Lines told{"3 bsl_verify_flash_image: BSL: CRC Mismatch detected on range:",
                     "3 bsl_verify_flash_image: BSL: 0x4400 - 0x4503... (length=0x104)",
                     "3 bsl_codeload: BSL: ERROR: Codeloaded image failed integrity check"};
    EXPECT_NE(std::search(lines.begin(), lines.end(), told.begin(), told.end()), lines.end());
}

TEST_F(UpgradeTest, LoadsBlocksOfEverySize)
{
    struct Case {
        std::string name;
        std::string blocks; // commands between the password and the restart
    };
    const auto times = [](const std::string &command, int count) {
        std::string text;
        for (int i = 0; i < count; ++i)
            text += command;
        return text;
    };
    for (const Case &c :
         {Case{"b250", times("12", 1) + times("10", 1) + "16"}, Case{"b251", times("12", 1) + times("10", 2) + "16"},
          Case{"b512", times("12", 1) + times("10", 3) + "16"},
          Case{"b65535", times("12", 128) + times("10", 263) + "16"},
          // 65535 + 4465 bytes, each piece in packets of its own
          Case{"b70000", times("12", 137) + times("10", 263 + 18) + "1616"}}) {
        reset_card();
        LogWatch log;
        const Upgrade done = upgrade(image(c.name + ".txt"));
        EXPECT_EQ(done.result, 0) << c.name;
        EXPECT_EQ(done.status, BSL_STATUS_SUCCESSFUL) << c.name;
        EXPECT_EQ(card_commands(), kStart + "18" + c.blocks) << c.name;
        const Bytes data = block(c.name + "-0x9000.bin");
        EXPECT_EQ(flash(0x9000, data.size()), digits(data)) << c.name;
        const Lines lines = log.take();
        const bool split = std::find(lines.begin(), lines.end(),
                                     "6 BSL: Splitting up write of 70000 bytes to 0x9000...") != lines.end();
        EXPECT_EQ(split, c.name == "b70000");
    }
}

namespace {

struct Seen {
    std::vector<ddal_ext_rfcard_phase> phases;
    std::vector<uint32_t> totals;
    uint32_t last = 0;
    bool orderly = true;

    static void watch(void *context, ddal_ext_rfcard_phase phase, uint32_t done, uint32_t total)
    {
        auto *seen = static_cast<Seen *>(context);
        if (done == 0) {
            seen->phases.push_back(phase);
            seen->totals.push_back(total);
        } else {
            seen->orderly = seen->orderly && phase == seen->phases.back() && done > seen->last && done <= total;
        }
        seen->last = done;
    }
};

} // namespace

TEST_F(UpgradeTest, ReportsItsProgressInBytes)
{
    Seen seen;
    ASSERT_EQ(upgrade(image("small.txt"), 1, Seen::watch, &seen).result, 0);
    EXPECT_EQ(seen.phases, (std::vector<ddal_ext_rfcard_phase>{DDAL_EXT_RFCARD_ENTER, DDAL_EXT_RFCARD_ERASE,
                                                               DDAL_EXT_RFCARD_PROGRAM, DDAL_EXT_RFCARD_VERIFY,
                                                               DDAL_EXT_RFCARD_LOADER, DDAL_EXT_RFCARD_RESTART}));
    EXPECT_EQ(seen.totals, (std::vector<uint32_t>{0, 760, 760, 760, 0, 0}));
    EXPECT_TRUE(seen.orderly);
}

TEST_F(UpgradeTest, HasReadOnlyRelatives)
{
    ASSERT_EQ(upgrade(image("small.txt")).result, 0);
    const QuietErrors quiet;
    int identical = -1;
    EXPECT_EQ(ddal_ext_rfcard_verify(image("small.txt").c_str(), 0, nullptr, nullptr, &identical), 0);
    EXPECT_EQ(identical, 1);
    EXPECT_EQ(ddal_ext_rfcard_verify(image("several.txt").c_str(), 0, nullptr, nullptr, &identical), 0);
    EXPECT_EQ(identical, 0);
    EXPECT_EQ(ddal_ext_rfcard_verify("/etc/version", 0, nullptr, nullptr, &identical), -1001) << "no image";

    uint8_t loader[4], application[8];
    EXPECT_EQ(ddal_ext_rfcard_version(loader, application, 0), 0);
    EXPECT_EQ(digits(Bytes(loader, loader + 4)), "00083553");
    EXPECT_EQ(Bytes(application, application + 8), version);
    EXPECT_EQ(card_state("mode"), "application");
    EXPECT_EQ(ddal_ext_rfcard_restart(0), 0);
    EXPECT_EQ(card_commands().find("10", card_commands().size() - 8), std::string::npos);
    expect_image_in_flash();
}

TEST(Printing, ShowsVersionsWithoutLeadingZerosAndMemoryInRows)
{
    struct Case {
        Bytes version;
        const char *text;
    };
    LogWatch log;
    for (const Case &c :
         {Case{Bytes(8, 0xFF), "Blank"}, Case{{1, 2, 3, 4, 5, 6, 7, 8}, "01020304050607.08"},
          Case{{0, 2, 3, 4, 5, 6, 7, 8}, "020304050607.08"}, Case{{0, 0, 0, 0, 5, 6, 7, 8}, "050607.08"},
          Case{{0, 0, 0, 0, 0, 6, 7, 8}, "0607.08"}, Case{{0, 0, 0, 0, 0, 0, 7, 8}, "07.08"},
          Case{{0, 0, 0, 0, 0, 0, 0, 0}, "00.00"}, Case{{1, 0, 0, 0, 0, 0, 0, 0}, "01000000000000.00"}}) {
        bsl_print_file_version("v ", c.version.data());
        EXPECT_EQ(log.take(), Lines{std::string("7 v ") + c.text});
    }
    bsl_print_memory("0123456789abcde\x7fXY", 18);
    EXPECT_EQ(log.take(),
              (Lines{"7 30 31 32 33 34 35 36 37   38 39 61 62 63 64 65 7f   0123456789abcde.", "7 58 59 XY"}));
}
