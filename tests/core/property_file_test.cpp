#include <ddal/common.h>

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>

#include "temporary_directory.h"

using namespace std::string_literals;

namespace {

TEST(PropertyFile, ReadsUpToTheBufferOrReturnsTheSize)
{
    const TemporaryDirectory directory;
    const std::string large(70000, 'x');
    const struct {
        std::string content;
        size_t size;
        int result;
    } cases[] = {
        {"", 0, 0},      {"", 8, 0},      {"hello", 0, 5},      {"hello", 3, 5},
        {"hello", 5, 5}, {"hello", 6, 5}, {large, 4096, 70000},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.content.substr(0, 8) + " into " + std::to_string(c.size));
        const std::string path = directory.put("file", c.content);
        std::string buffer(c.size + 4, '#');
        EXPECT_EQ(ddal_common_read_file(buffer.data(), c.size, path.c_str()), c.result);
        const size_t stored = std::min(c.size, c.content.size());
        EXPECT_EQ(buffer, c.content.substr(0, stored) + std::string(buffer.size() - stored, '#'));
    }
    EXPECT_EQ(ddal_common_read_file(nullptr, 0, (directory / "missing").c_str()), -ENOENT);
    EXPECT_EQ(ddal_common_read_file(std::string(8, ' ').data(), 8, (directory / "").c_str()), -EISDIR);
}

TEST(PropertyFile, CutsTextsAndReportsTheSizeThatDidNotFit)
{
    const TemporaryDirectory directory;
    const struct {
        std::string content;
        size_t size;
        int result;
        std::string text;
        size_t left;
    } cases[] = {
        {"hello", 0, 0, "", 6},          {"hello", 1, 0, "", 5},      {"hello", 3, 2, "he", 3},
        {"hello", 5, 4, "hell", 1},      {"hello", 6, 5, "hello", 0}, {"hello", 7, 5, "hello", 0},
        {"a\0b\n"s, 8, 4, "a\0b\n"s, 0}, {"", 8, 0, "", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.content + " into " + std::to_string(c.size));
        const std::string path = directory.put("file", c.content);
        std::string buffer(16, '#');
        size_t size = c.size;
        EXPECT_EQ(ddal_kvb_common_read_string_and_size(&size, buffer.data(), path.c_str()), c.result);
        EXPECT_EQ(size, c.left);
        const std::string stored = c.size == 0 ? "" : c.text + '\0';
        EXPECT_EQ(buffer, stored + std::string(buffer.size() - stored.size(), '#'));

        std::string again(16, '#');
        EXPECT_EQ(ddal_common_read_string(c.size, again.data(), path.c_str()), c.size == 0 ? -EINVAL : 0);
        EXPECT_EQ(again, buffer);
    }
}

TEST(PropertyFile, ReadsNumbersFromText)
{
    const TemporaryDirectory directory;
    constexpr uint64_t kUntouched = 99;
    const struct {
        std::string content;
        int base;
        int result;
        uint64_t value;
    } cases[] = {
        {"12\n", 10, 0, 12},
        {"0x1f", 0, 0, 31},
        {"1f units", 16, 0, 31},
        {"18446744073709551615", 10, 0, UINT64_MAX},
        {"18446744073709551616", 10, -ERANGE, UINT64_MAX},
        {"", 10, -ENODATA, 0},
        {"\n", 10, -ENODATA, 0},
        {std::string(31, '0'), 10, 0, 0},
        {std::string(32, '0'), 10, -EFBIG, kUntouched},
        {std::string(40, '1'), 10, -EFBIG, kUntouched},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.content);
        const std::string path = directory.put("file", c.content);
        uint64_t value = kUntouched;
        EXPECT_EQ(ddal_kvb_common_read_string_to_u64(&value, path.c_str(), c.base), c.result);
        EXPECT_EQ(value, c.value);
    }
}

TEST(PropertyFile, CellsAreBigEndianAndOfExactLength)
{
    const TemporaryDirectory directory;
    const std::string path = directory.put("cells", "longer than two cells");
    const uint32_t written[] = {0x01020304, 0xFFFEFDFC};
    ASSERT_EQ(ddal_common_write_u32val_array(2, written, path.c_str()), 0);
    EXPECT_EQ(directory.get("cells"), "\x01\x02\x03\x04\xFF\xFE\xFD\xFC");
    uint32_t read[3] = {};
    for (const unsigned n : {0U, 1U, 3U, 0x40000002U}) // the last one times 4 is 8 in 32 bits
        EXPECT_EQ(ddal_common_read_u32val_array(n, read, path.c_str()), -ENODATA) << n;
    ASSERT_EQ(ddal_common_read_u32val_array(2, read, path.c_str()), 0);
    EXPECT_EQ(memcmp(read, written, sizeof written), 0);
}

TEST(PropertyFile, WritersTruncateAndNeverCreate)
{
    const TemporaryDirectory directory;
    const uint32_t value = 7;
    EXPECT_EQ(ddal_common_write_string("x", (directory / "missing").c_str()), -ENOENT);
    EXPECT_EQ(ddal_common_write_u32val(&value, (directory / "missing").c_str()), -ENOENT);
    EXPECT_TRUE(directory.names().empty());
    ASSERT_EQ(ddal_common_write_string("on", directory.put("file", "longer").c_str()), 0);
    EXPECT_EQ(directory.get("file"), "on");
    EXPECT_EQ(ddal_common_write_string("x", "/dev/full"), -ENOSPC);
}

} // namespace
