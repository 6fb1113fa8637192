// The board type with another version block and CRC range.
#include <gtest/gtest.h>

#include "rf_card/card.h"

using namespace testing_rf_card;

TEST(Type5, HasAnotherVersionAddressAndChecksShorterRanges)
{
    EXPECT_EQ(bsl_get_up_version_addr(), 0xEA00u);
    EXPECT_EQ(bsl_get_crc_max_length(), 32767u);

    reset_card();
    EXPECT_EQ(upgrade(image("type5.txt")).status, BSL_STATUS_SUCCESSFUL);
    EXPECT_EQ(card_commands(), "195211"
                               "18"
                               "1212"
                               "101010"
                               "16");
    EXPECT_EQ(flash(0xea00, 600), digits(block("type5-0xEA00.bin")));

    ctl("rf-card fault clear");
    EXPECT_EQ(upgrade(image("64k.txt")).status, BSL_STATUS_SUCCESSFUL);
    const std::string commands = card_commands();
    EXPECT_EQ(commands.substr(commands.size() - 8), "10161616") << "65536 bytes in ranges of 32767";
}
