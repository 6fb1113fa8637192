#include <ddal/unit.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/board_file.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;

namespace {

const std::string kBoardType = "/proc/device-tree/board-identity/board-type";

// The cases build on each other: a process keeps a valid board type.
TEST(BoardType, IsRefusedUntilValidAndThenKept)
{
    const std::string refused = "3 ddal_unit_get_board: Couldn't read board type";
    LogWatch log;
    put_cells(kBoardType, {9});
    EXPECT_EQ(ddal_unit_get_board(), -1001);
    EXPECT_EQ(ddal_unit_get_board_subtype(), -1001);
    put_cells(kBoardType, {0xFFFFFFFF});
    EXPECT_EQ(ddal_unit_get_board(), -1001);
    EXPECT_EQ(log.take(), std::vector<std::string>(3, refused));

    put_cells(kBoardType, {0});
    const std::string reader = "3 ddal_common_read_file: error ";
    Sweep("ddal_unit_get_board", ddal_unit_get_board)
        .succeeds(1)
        .when("fopen", fails(-1001, {reader + "open " + kBoardType + ": %m", refused}))
        .when("fread/EIO", fails(-1001, {reader + "read " + kBoardType + ": %m", refused}))
        .when("fread/short", fails(-1001, {refused}))
        .when("fread/end", fails(-1001, {refused}))
        .when("fseek", fails(-1001, {reader + "seek " + kBoardType + ": %m", refused}))
        .when("ftell", fails(-1001, {reader + "tell " + kBoardType + ": %m", refused}))
        .when("fclose", changes_nothing())
        .run();

    put_cells(kBoardType, {7});
    EXPECT_EQ(ddal_unit_get_board(), 1);
    EXPECT_EQ(ddal_unit_get_board_subtype(), 1);
}

} // namespace
