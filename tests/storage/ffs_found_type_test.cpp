// Types that the probe's library never returns, so the test replaces its answer.
#include <blkid/blkid.h>
#include <cerrno>
#include <cstring>
#include <optional>

#include <ddal/ffs.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/log_watch.h"

namespace {

std::optional<std::string> found;

} // namespace

extern "C" int blkid_probe_lookup_value(blkid_probe, const char *, const char **data, size_t *size)
{
    if (!found)
        return -1;
    *data = found->c_str();
    *size = found->size() + 1;
    return 0;
}

TEST(FlashType, HasAtMost15Characters)
{
    const std::string fifteen = "fifteen_letters", sixteen = "sixteen__letters", get = "3 ddal_ffs_get_fstype: ",
                      query = "3 ddal_ffs_query_fstype: ", failed = query + "ddal_ffs_get_fstype failed";
    struct {
        std::optional<std::string> type;
        int result, query_result;
        std::string get_line, query_line;
    } const cases[] = {
        {fifteen, 0, -1001, "", query + "Unrecognized fs type: " + fifteen},
        {sixteen, -ENOSPC, -ENOSPC, get + "insufficient space to copy type " + sixteen + " for /dev/sda1", failed},
        {{}, -EMEDIUMTYPE, -EMEDIUMTYPE, get + "probe of /dev/sda1 is missing type", failed},
    };
    for (const auto &row : cases) {
        found = row.type;
        testing_board::LogWatch log;
        char type[17] = "unchanged";
        EXPECT_EQ(ddal_ffs_get_fstype(DDAL_FFS_1, type), row.result);
        EXPECT_STREQ(type, row.result == 0 ? row.type->c_str() : "unchanged");
        uint32_t code = 99;
        EXPECT_EQ(ddal_ffs_query_fstype(DDAL_FFS_1, &code), row.query_result);
        EXPECT_EQ(code, 99u);
        std::vector<std::string> lines(row.result == 0 ? 0 : 2, row.get_line);
        lines.push_back(row.query_line);
        EXPECT_EQ(log.take(), lines);
    }
}
