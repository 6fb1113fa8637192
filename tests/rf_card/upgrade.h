// Parts that the tests of the whole upgrade share: the image, the commands and the log lines of the steps.
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rf_card/card.h"

namespace testing_rf_card {

using Lines = std::vector<std::string>;

inline const std::string kStart = "1952"
                                  "11"; // version, rate, password
inline const std::string kEraseAndProgram = "121212"
                                            "1010101010"
                                            "161616";

inline Lines operator+(Lines left, const Lines &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// Returns the file's version as the log shows it.
inline std::string printed(const Bytes &version)
{
    size_t start = 0;
    while (start < 6 && version[start] == 0)
        ++start;
    return digits(Bytes(version.begin() + static_cast<long>(start), version.begin() + 7)) + "." + digits({version[7]});
}

inline const Lines kEntered{"7 Initializing BSL... ", "7 UART opened.", "7 Putting uP in BSL mode... ", "7 done",
                            "7 Current BSL version: 00.08.35.53"};
inline const Lines kRestarted{"7 Putting uP in app mode... ", "6 BSL: INFO: uP firmware status: 0x01, 0x5a", "7 done"};
inline const Lines kVerifying{"6 BSL: Verifying uP image in flash..."};

inline const Lines kWritten{"6 bsl_erase_image: BSL: Erasing uP flash...",
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

} // namespace testing_rf_card
