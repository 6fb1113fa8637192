// Facts of the board: versions, memory, security, start-up word, clock rate, Wi-Fi and the trouble log.
#include <ddal/common.h>
#include <ddal/cpu.h>
#include <ddal/mem.h>
#include <ddal/rpram.h>
#include <ddal/security.h>
#include <ddal/sysinfo.h>
#include <ddal/trbl.h>
#include <ddal/version.h>
#include <ddal/wifi.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/board.h"
#include "support/board_file.h"
#include "support/log_watch.h"

using namespace testing_board;
using testing::ElementsAre;

namespace {

constexpr const char *kSysinfo = "/flash/config/sysinfo";

TEST(Version, LosesItsSuffixOnlyOnATag)
{
    const std::string long_text(120, 'v');
    const struct {
        std::string file;
        std::string text;
    } cases[] = {{"R1.2-0-g1a2b3c\n", "R1.2"},
                 {"R1.2-0-g1a2b3c", "R1.2"},
                 {"R1.2-0-gABCDEF\n", "R1.2"},
                 {"R1-0-g12-0-gab\n", "R1-0-g12"},
                 {"R1-0-g12-0-gxy\n", "R1-0-g12-0-gxy"},
                 {"R1.2-3-g1a2b3c\n", "R1.2-3-g1a2b3c"},
                 {"R1.2-0-gxyz\n", "R1.2-0-gxyz"},
                 {"R1.2-0-g\n", "R1.2-0-g"},
                 {"R1.2-0-g12 \n", "R1.2-0-g12 "},
                 {"R1.2\n\n", "R1.2\n"},
                 {"", ""},
                 {long_text + "-0-g12345678\n", long_text} /* 127 characters are read */};
    for (const auto &c : cases) {
        put_file("/etc/version", c.file);
        for (const size_t capacity : {size_t{0}, size_t{3}, size_t{200}}) {
            std::string buffer(201, '#');
            size_t size = capacity;
            EXPECT_EQ(ddal_version_get_lfs_version(buffer.data(), &size), 0);
            EXPECT_EQ(size, c.text.size()) << c.file;
            const std::string stored = capacity == 0 ? "#" : c.text.substr(0, capacity - 1) + '\0';
            EXPECT_EQ(buffer.substr(0, stored.size()), stored) << c.file;
        }
    }
}

TEST(LinuxId, IsTheThirdCharacter)
{
    const struct {
        std::string property;
        int result;
        uint32_t id;
    } cases[] = {{std::string("os1\0", 4), 0, 1},
                 {"xx2", 0, 2},
                 {"xx7", -1001, 7},
                 {"xx0", -1001, 0},
                 {"2", -1001, static_cast<uint32_t>(-'0')}};
    for (const auto &c : cases) {
        put_file("/proc/device-tree/post/linuxid", c.property);
        uint32_t id = 99;
        LogWatch log;
        EXPECT_EQ(ddal_common_linux_id_get(&id), c.result);
        EXPECT_EQ(id, c.id);
        if (c.result) {
            EXPECT_THAT(log.take(), ElementsAre("3 ddal_common_linux_id_get: invalid linux ID: " +
                                                std::to_string(static_cast<int32_t>(c.id))));
        }
    }
    LogWatch log;
    EXPECT_EQ(ddal_common_linux_id_get(nullptr), -EINVAL);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_common_linux_id_get: pointer to ID is null"));
}

TEST(Security, KeepsTheFirstGoodAnswer)
{
    const char *property = "/proc/device-tree/security/secure_env";
    const struct {
        const char *content;
        int result;
        uint32_t secure;
    } cases[] = {{"2", -EFAULT, 99}, {"", -EFAULT, 99}, {"1", 0, 1}, {"0", 0, 1}, {"2", 0, 1}};
    for (const auto &c : cases) {
        put_file(property, c.content);
        uint32_t secure = 99;
        EXPECT_EQ(ddal_security_is_secure_env(&secure), c.result);
        EXPECT_EQ(secure, c.secure);
    }
    uint8_t has = 9;
    EXPECT_EQ(ddal_security_has_cryptoagent(&has), 0);
    EXPECT_EQ(has, 1);
    LogWatch log;
    EXPECT_EQ(ddal_security_is_secure_env(nullptr), -EINVAL);
    EXPECT_EQ(ddal_security_has_cryptoagent(nullptr), -EINVAL);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_security_is_secure_env: error",
                                        "3 ddal_security_has_cryptoagent: has_cryptoagent is NULL"));
}

TEST(Memory, MapsTheRequestedByteAndItsPages)
{
    EXPECT_EQ(ddal_mem_unmap_addr(&errno, 4), -EINVAL); // nothing was ever mapped
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    auto *first = static_cast<uint8_t *>(ddal_mem_map_addr(0x1000010, 8));
    auto *second = static_cast<uint8_t *>(ddal_mem_map_addr(0x1000000 + page - 4, 8)); // across the end of a page
    ASSERT_TRUE(first && second);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(first) % page, 0x10U);
    first[3] = 0xA5;
    second[7] = 0x5A;
    uint8_t value = 0;
    const int fd = open("/dev/mem", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(pread(fd, &value, 1, 0x1000013), 1);
    EXPECT_EQ(value, 0xA5);
    EXPECT_EQ(pread(fd, &value, 1, static_cast<off_t>(0x1000000 + page + 3)), 1);
    EXPECT_EQ(value, 0x5A);
    ASSERT_EQ(close(fd), 0);

    EXPECT_EQ(ddal_mem_unmap_addr(nullptr, 8), -EINVAL);
    EXPECT_EQ(ddal_mem_unmap_addr(first, 8), 0);
    EXPECT_EQ(ddal_mem_unmap_addr(second, 8), 0);
    for (uint8_t *mapped : {first, second, second + 7}) {
        unsigned char there = 0;
        EXPECT_EQ(mincore(reinterpret_cast<void *>(reinterpret_cast<uintptr_t>(mapped) / page * page), page, &there),
                  -1);
    }
    LogWatch log;
    EXPECT_EQ(ddal_mem_map_addr(0x1000000, 0), nullptr);
    EXPECT_THAT(log.take(),
                ElementsAre("3 ddal_mem_map_addr: failed to map address 0x1000000 size 0x0: Invalid argument"));

    auto *high = static_cast<uint8_t *>(ddal_mem_map_addr(0xFFFF0000, 1));
    ASSERT_NE(high, nullptr); // beyond 2 GiB
    *high = 0x77;
    EXPECT_EQ(ddal_mem_unmap_addr(high, 1), 0);
}

TEST(Memory, TheRegisterSpaceIsMappedOnce)
{
    EXPECT_EQ(ddal_unmap_soc(), 0);
    const auto *mapped = static_cast<const uint8_t *>(ddal_map_soc());
    ASSERT_NE(mapped, nullptr);
    EXPECT_EQ(ddal_map_soc(), mapped);
    const int fd = open("/dev/mem", O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(pwrite(fd, "\x42", 1, 0x235FFFF), 1);
    close(fd);
    EXPECT_EQ(mapped[0x235FFFF], 0x42);
    EXPECT_EQ(ddal_unmap_soc(), 0);
    EXPECT_EQ(ddal_unmap_soc(), 0);
}

TEST(StartUpWord, IsZeroUntilSet)
{
    uint32_t value = 99;
    EXPECT_EQ(ddal_kvb_rpram_get_isti(5, &value), 0);
    EXPECT_EQ(value, 0U);
    for (const uint32_t set : {0x01020304U, 0xFFFFFFFFU}) {
        ASSERT_EQ(ddal_kvb_rpram_set_isti(set), 0);
        EXPECT_EQ(ddal_kvb_rpram_get_isti(5, &value), 0);
        EXPECT_EQ(value, set);
    }
    struct stat made;
    ASSERT_EQ(stat("/ram/hwapi/isti", &made), 0);
    EXPECT_EQ(made.st_mode & ALLPERMS, 0644U);
    EXPECT_EQ(made.st_size, 4);
    put_file("/ram/hwapi/isti", "12345");
    EXPECT_EQ(ddal_kvb_rpram_get_isti(5, &value), -ENODATA);
}

TEST(ClockRate, FitsThirtyTwoBits)
{
    const struct {
        const char *content;
        int result;
        uint32_t hz;
    } cases[] = {{"1228800000\n", 0, 1228800000},
                 {"4294967295", 0, UINT32_MAX},
                 {"4294967296", -ERANGE, 99},
                 {"none", -ENODATA, 99}};
    for (const auto &c : cases) {
        put_file("/sys/kernel/debug/clk/gem0/clk_rate", c.content);
        uint32_t hz = 99;
        EXPECT_EQ(ddal_cpu_get_clk_rate(&hz), c.result) << c.content;
        EXPECT_EQ(hz, c.hz);
    }
}

TEST(TroubleLog, StoresAndDeletes)
{
    EXPECT_EQ(ddal_trbl_prepare(), 0);
    EXPECT_EQ(ddal_trbl_store("evening"), 0);
    EXPECT_TRUE(std::filesystem::exists("/ram/trbl/evening"));
    EXPECT_EQ(ddal_trbl_delete("/ram/trbl/evening"), 0);
    LogWatch log;
    EXPECT_EQ(ddal_trbl_delete("/ram/trbl/evening"), -ENOENT);
    EXPECT_EQ(ddal_trbl_store(""), -1018);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_trbl_delete: unlink failed: No such file or directory",
                                        "3 ddal_trbl_store: execution of 'trbl_linux_log_store ' failed"));
}

TEST(Wifi, OneAndTwoMeanFitted)
{
    for (const uint64_t value : {0ULL, 1ULL, 2ULL, 3ULL, 0x100000001ULL}) {
        ASSERT_EQ(ddal_sysinfo_set_uint(0, 13, 20, value), 0);
        EXPECT_EQ(ddal_is_wifi_supported(), value == 1 || value == 2 ? 0 : -1) << value;
    }
    unlink(kSysinfo);
    LogWatch log;
    EXPECT_EQ(ddal_is_wifi_supported(), -1);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_is_wifi_supported: ddal_sysinfo_get_uint failed to check wifi support, "
                                        "value returned: -2"));
}

} // namespace
