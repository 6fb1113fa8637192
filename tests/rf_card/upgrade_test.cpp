// The whole upgrade against the microcontroller's model: decisions, actions, log lines.
#include <algorithm>

#include <gtest/gtest.h>

#include "rf_card/upgrade.h"
#include "support/log_watch.h"
#include "support/resources.h"

using namespace testing_rf_card;
using testing_board::LogWatch;
using testing_board::Resources;

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
    ctl("rf-card fault clear"); // restarts the count
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

TEST_F(UpgradeTest, ForcesOnlyWithOneAndRewritesTheLoaderOtherwise)
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
    EXPECT_EQ(Lines(lines.begin() + 5, lines.begin() + 8),
              (Lines{"3 get_bsl_resp: BSL: Received BSL Core error: PASSWORD_ERROR (0x05)",
                     "7 BSL: image file contains uP version: " + printed(version), "7 BSL: Current uP image: Blank"}));
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
          // 65535 + 4465 bytes, each piece in separate packets
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
