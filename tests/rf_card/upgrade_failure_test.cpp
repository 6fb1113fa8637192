// The whole upgrade with a failing file, board, card or flash.
#include <algorithm>
#include <cerrno>

#include <gtest/gtest.h>

#include "rf_card/upgrade.h"
#include "support/log_watch.h"
#include "support/resources.h"

using namespace testing_rf_card;
using testing_board::Fault;
using testing_board::LogWatch;
using testing_board::Resources;

TEST_F(UpgradeTest, ReplacesALoaderThatDoesNotReportItsVersion)
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

TEST_F(UpgradeTest, RefusesFilesThatAreNotImages)
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
    // A malformed file counts as an image of 0 bytes. Only ddal_ext_rfcard_upgrade() reports it.
    const Upgrade done = upgrade(broken);
    EXPECT_EQ(done.result, 0);
    EXPECT_EQ(done.status, BSL_STATUS_NOT_PARSED);
    EXPECT_EQ(ctl("rf-card peek 0x9000 600"), blank);
    for (const std::string &path : {empty, no_version, broken})
        unlink(path.c_str());
}

TEST_F(UpgradeTest, EndsWhereTheBoardFails)
{
    const Lines opened{"7 Initializing BSL... ", "7 UART opened.", "7 Putting uP in BSL mode... "};
    const std::string pins = "3 bsl_drive_tst_rst: BSL: ERROR: FPGA masked write failed";
    const std::string ioctl = "3 ddal_fpga_masked_write: ioctl failed: Input/output error";
    struct Case {
        std::string fault;
        int result;
        Lines lines; // the last lines
        std::string mode;
    };
    for (const Case &c : {
             Case{"ioctl:/dev/fpga_usr nth=1 errno=EIO",
                  -1001,
                  {ioctl, "3 bsl_upgrade_up_image: Failed to turn on the RF POWER.n"},
                  "application"},
             Case{"open:/dev/ttyFPGA3 nth=1 errno=ENOENT", -1001, {"7 Initializing BSL... "}, "application"},
             Case{"tcsetattr nth=1 errno=EIO", -1001, {"7 Initializing BSL... "}, "application"},
             Case{"ioctl:/dev/fpga_usr nth=2 errno=EIO", -1001,
                  opened + Lines{ioctl, pins, "3 bsl_upgrade_up_image: BSL: ERROR: Unable to gain BSL entry"},
                  "application"},
             // The early returns: setting the UART has failed and closed it.
             Case{"tcsetattr nth=2 errno=EIO", -ECONNABORTED, kEntered, "loader"},
             Case{"tcsetattr nth=3 errno=EIO", -ECONNABORTED, {"7 BSL: Codeload successful"}, "loader"},
             // Six writes enter the loader and one switches the power, so the eighth is the first of the reset.
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

TEST_F(UpgradeTest, WaitsForTheApplicationForALimitedTime)
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

// Changes a byte of the flash when a phase begins.
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

TEST_F(UpgradeTest, ReportsFlashThatDoesNotAcceptOrKeepTheImage)
{
    LogWatch log;
    // A cell stuck at 0, where the image needs another value.
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
    EXPECT_EQ(done.result, 0) << "kept: only the status shows it";
    EXPECT_EQ(done.status, BSL_STATUS_MISMATCH);
    lines = log.take();
    const Lines told{"3 bsl_verify_flash_image: BSL: CRC Mismatch detected on range:",
                     "3 bsl_verify_flash_image: BSL: 0x4400 - 0x4503... (length=0x104)",
                     "3 bsl_codeload: BSL: ERROR: Codeloaded image failed integrity check"};
    EXPECT_NE(std::search(lines.begin(), lines.end(), told.begin(), told.end()), lines.end());
}
