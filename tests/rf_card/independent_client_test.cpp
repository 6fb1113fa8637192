// The microcontroller's model against a client that was written for the real part: mspdebug's flash-bsl driver.
#include <gtest/gtest.h>

#include "rf_card/card.h"
#include "support/program.h"

using namespace testing_rf_card;
using namespace testing_board;

namespace {

Finished mspdebug(const std::vector<std::string> &commands)
{
    std::vector<std::string> words{"/usr/bin/mspdebug", "-n", "-q", "-d", "/dev/ttyFPGA3", "flash-bsl"};
    words.insert(words.end(), commands.begin(), commands.end());
    return run_program(words);
}

} // namespace

TEST(IndependentClient, EntersErasesProgramsAndVerifies)
{
    reset_card();
    const std::string file = image("several.txt");
    const Finished run = mspdebug({"prog " + file, "verify " + file, "erase segment 0x4400", "md 0x4400 4"});
    EXPECT_EQ(run.status, 0) << run.out << run.err;

    const std::string commands = card_commands();
    EXPECT_EQ(commands.substr(0, 6), "151119") << "mass erase, password, version";
    for (const char *command : {"10", "12", "18"})
        EXPECT_NE(commands.find(command), std::string::npos) << command;
    EXPECT_EQ(commands.find("00"), std::string::npos) << "no packet was refused";
    EXPECT_EQ(flash(0x9000, 408), digits(block("several-0x9000.bin")));
    EXPECT_EQ(flash(0xFE00, 200), digits(block("several-0xFE00.bin")));
    EXPECT_EQ(flash(0x4400, 300), std::string(600, 'f')) << "erased in the end";
    EXPECT_EQ(card_state("gap-violations"), "0");
}

TEST(IndependentClient, NoticesAMismatch)
{
    reset_card();
    const Finished run = mspdebug({"prog " + image("several.txt"), "verify " + image("small.txt")});
    EXPECT_NE(run.status, 0) << run.out << run.err;
}

TEST(IndependentClient, SeesTheSameFlashAsTheLibrary)
{
    reset_card();
    ASSERT_EQ(mspdebug({"prog " + image("several.txt")}).status, 0);
    ctl("rf-card fault clear");
    const Upgrade again = upgrade(image("several.txt"));
    EXPECT_EQ(again.result, 0);
    EXPECT_EQ(again.status, BSL_STATUS_NOT_REQUIRED);
}
