// A probe that finds something without a type. The probe's library knows none such, so one call of it is replaced.
#include <blkid/blkid.h>
#include <cerrno>

#include <ddal/ffs.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/log_watch.h"

using testing_board::LogWatch;

extern "C" int blkid_probe_lookup_value(blkid_probe, const char *, const char **, size_t *)
{
    return -1;
}

TEST(FlashType, IsMissedInWhatTheProbeFinds)
{
    LogWatch log;
    char type[17] = "unchanged";
    EXPECT_EQ(ddal_ffs_get_fstype(DDAL_FFS_1, type), -EMEDIUMTYPE);
    EXPECT_STREQ(type, "unchanged");
    uint32_t code = 99;
    EXPECT_EQ(ddal_ffs_query_fstype(DDAL_FFS_1, &code), -EMEDIUMTYPE);
    EXPECT_EQ(code, 99u);
    const std::string line = "3 ddal_ffs_get_fstype: probe of /dev/sda1 is missing type";
    EXPECT_THAT(log.take(), testing::ElementsAre(line, line, "3 ddal_ffs_query_fstype: ddal_ffs_get_fstype failed"));
}
