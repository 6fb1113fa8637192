// The encryption tool is run for the two partitions only.
#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "storage/ffs.h"
#include "storage/flash_disk.h"
#include "support/log_watch.h"

using namespace testing_board;

TEST(Luksapi, RefusesOtherPartitions)
{
    program_runs();
    LogWatch log;
    for (const int part : {0, 3, -1, 12})
        EXPECT_EQ(ddal::storage::luksapi("clear_dummy_part", part), -EINVAL);
    EXPECT_THAT(log.take(), testing::ElementsAre("3 luksapi: invalid part 0", "3 luksapi: invalid part 3",
                                                 "3 luksapi: invalid part -1", "3 luksapi: invalid part 12"));
    EXPECT_EQ(program_runs(), "");
    EXPECT_EQ(ddal::storage::luksapi("clear_dummy_part", 2), 0);
    EXPECT_EQ(program_runs(), "luksapi clear_dummy_part 2\n");
}
