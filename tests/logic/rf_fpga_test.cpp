#include <cerrno>
#include <fcntl.h>
#include <future>
#include <sys/file.h>
#include <unistd.h>

#include <ddal/rf_fpga.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/in_child.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;
using testing::ElementsAre;

namespace {

using Lines = std::vector<std::string>;

TEST(RfFpgaWords, MoveInOneTransfer)
{
    const uint32_t words[] = {0x11111111, 0x22222222, 0x33333333};
    uint32_t seen[4] = {};
    const Fault transfers("pread:/dev/fpga_rf0");
    EXPECT_EQ(ddal_rf_fpga_write(0x100, 3, words, 0), 3);
    EXPECT_EQ(ddal_rf_fpga_read(0x100, 4, seen, 0), 4);
    EXPECT_THAT(seen, ElementsAre(0x11111111, 0x22222222, 0x33333333, 0));
    EXPECT_EQ(transfers.seen(), 1u);
    uint32_t version = 0;
    EXPECT_EQ(ddal_rf_fpga_get_version(&version), 1);
    EXPECT_EQ(version, 0x21030001u);
}

TEST(RfFpgaRegisters, CheckArgumentsBeforeTheyOpenADevice)
{
    const Fault opened("open:/dev/fpga_rf* errno=EIO count=0");
    uint32_t word = 256;
    const std::string aligned = ": fpga reg address is not aligned", null = " buffer is NULL";
    struct Case {
        int result;
        std::function<int()> call;
        std::string line; // none where empty
    };
    const Case cases[] = {
        {-EINVAL, [] { return ddal_rf_fpga_read(2, 0, nullptr, 0); }, "3 ddal_rf_fpga_read: fpga read" + null},
        {0, [&] { return ddal_rf_fpga_read(2, 0, &word, 0); }, ""},
        {-EFAULT, [&] { return ddal_rf_fpga_read(2, 1, &word, 0); }, "3 ddal_rf_fpga_read" + aligned},
        {-EINVAL, [] { return ddal_rf_fpga_write(2, 0, nullptr, 0); }, "3 ddal_rf_fpga_write: fpga write" + null},
        {0, [&] { return ddal_rf_fpga_write(2, 0, &word, 0); }, ""},
        {-EFAULT, [&] { return ddal_rf_fpga_write(2, 1, &word, 0); }, "3 ddal_rf_fpga_write" + aligned},
        {0, [] { return ddal_rf_fpga_read(1, 0, nullptr, 2); }, ""},
        {-EINVAL, [&] { return ddal_rf_fpga_read(1, 2, &word, 1); }, ""},
        {-EINVAL, [] { return ddal_rf_fpga_read(1, 1, nullptr, 3); }, "3 ddal_rf_fpga_read: fpga read" + null},
        {0, [] { return ddal_rf_fpga_write(1, 0, nullptr, 3); }, ""},
        {-EINVAL, [&] { return ddal_rf_fpga_write(1, 2, &word, 1); }, ""},
        {-EINVAL, [&] { return ddal_rf_fpga_write(1, 1, &word, 2); },
         "3 ddal_rf_fpga_write: data written to SPI 2 overflow (max is 255)"},
        {-ENODEV, [] { return ddal_rf_fpga_masked_write(2, 1, 1, 4); }, "3 ddal_rf_fpga_masked_write: invalid devid."},
        {-EFAULT, [] { return ddal_rf_fpga_masked_write(2, 1, 1, 0); }, ""},
        {-EFAULT, [] { return ddal_rf_fpga_bit_set(0, 32, 0); }, ""},
        {-EFAULT, [] { return ddal_rf_fpga_bit_set(0, 8, 1); }, ""},
        {-EFAULT, [] { return ddal_rf_fpga_bit_reset(0, 8, 3); }, ""},
        {-ENODEV, [] { return ddal_rf_fpga_bit_reset(0, 8, 4); }, "3 ddal_rf_fpga_masked_write: invalid devid."},
    };
    for (const Case &c : cases) {
        LogWatch log;
        const auto number = &c - cases;
        EXPECT_EQ(c.call(), c.result) << number;
        EXPECT_EQ(log.take(), c.line.empty() ? Lines{} : Lines{c.line}) << number;
    }
    EXPECT_EQ(opened.seen(), 0u);
}

TEST(RfFpgaSpi, HasSeparateByteRegistersOnEachDevice)
{
    for (uint32_t device = 1; device <= 3; ++device) {
        const uint32_t value = 0xF0 + device;
        uint32_t seen = 0xFFFFFFFF;
        EXPECT_EQ(ddal_rf_fpga_write(0x11, 1, &value, device), 1);
        EXPECT_EQ(ddal_rf_fpga_read(0x11, 1, &seen, device), 1);
        EXPECT_EQ(seen, value);
        EXPECT_EQ(ctl("rf-fpga" + std::to_string(device) + " get 0x11"), "0xf" + std::to_string(device) + "\n");
    }
}

TEST(RfFpgaMaskedWrite, ChangesOnlyTheMaskedBits)
{
    for (uint32_t device = 0; device <= 3; ++device) {
        const uint32_t old = 0xA5;
        uint32_t seen = 0;
        const auto value = [&] { return ddal_rf_fpga_read(0x20, 1, &seen, device) == 1 ? seen : ~0u; };
        ASSERT_EQ(ddal_rf_fpga_write(0x20, 1, &old, device), 1);
        EXPECT_EQ(ddal_rf_fpga_masked_write(0x20, 0x0F, 0x3C, device), 0);
        EXPECT_EQ(value(), 0xACu);
        EXPECT_EQ(ddal_rf_fpga_bit_set(0x20, 0, device), 0);
        EXPECT_EQ(value(), 0xADu);
        EXPECT_EQ(ddal_rf_fpga_bit_reset(0x20, 7, device), 0);
        EXPECT_EQ(value(), 0x2Du);
    }
    uint32_t seen = 0;
    EXPECT_EQ(ddal_rf_fpga_bit_set(0x24, 31, 0), 0);
    EXPECT_EQ(ddal_rf_fpga_read(0x24, 1, &seen, 0), 1);
    EXPECT_EQ(seen, 0x80000000u);
}

TEST(RfFpgaRegisters, SurviveEveryFailure)
{
    static uint32_t words[3] = {1, 2, 3};
    const std::string read = "3 ddal_rf_fpga_read: ", write = "3 ddal_rf_fpga_write: ";
    Sweep("ddal_rf_fpga_read", [] { return ddal_rf_fpga_read(0, 3, words, 0); })
        .succeeds(3)
        .when("open", fails_with_errno(read + "can't open device fpga_rf0: %m"))
        .when("pread/end", fails(0, {}))
        .when("pread/EIO", fails_with_errno(read + "fpga read failed: %m"))
        .run();
    Sweep("ddal_rf_fpga_write", [] { return ddal_rf_fpga_write(0x100, 3, words, 0); })
        .succeeds(3)
        .when("open", fails_with_errno(write + "can't open device fpga_rf0: %m"))
        .when("pwrite/end", fails(0, {}))
        .when("pwrite/EIO", fails_with_errno(write + "fpga write failed: %m"))
        .run();
    Sweep("ddal_rf_fpga_read, SPI", [] { return ddal_rf_fpga_read(1, 1, words, 2); })
        .succeeds(1)
        .when("open", fails_with_errno(read + "can't open device /dev/fpga_rf2: %m"))
        .when("ioctl", fails_with_errno(read + "ioctl failed: %m"))
        .run();
    Sweep("ddal_rf_fpga_write, SPI", [] { return ddal_rf_fpga_write(1, 1, words, 3); })
        .before([] { words[0] = 1; })
        .succeeds(1)
        .when("open", fails_with_errno(write + "can't open device /dev/fpga_rf3: %m"))
        .when("ioctl", fails_with_errno(write + "ioctl failed: %m"))
        .run();
    Sweep("ddal_rf_fpga_masked_write", [] { return ddal_rf_fpga_masked_write(0, 0, 0, 1); })
        .when("open", fails_with_errno("3 ddal_rf_fpga_masked_write: can't open device /dev/fpga_rf1: %m"))
        .when("ioctl", fails(-1001, {"3 ddal_rf_fpga_masked_write: ioctl failed: %m"}))
        .run();
}

TEST(RfFpgaDevice, OpensByNumberAndStoresMinusOneOnFailure)
{
    int fd = 7;
    LogWatch log;
    EXPECT_EQ(ddal_rf_fpga_open(4, &fd), -ENODEV);
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(ddal_rf_fpga_open(4, nullptr), -EINVAL);
    EXPECT_EQ(ddal_rf_fpga_close(-1), -EBADF);
    EXPECT_EQ(ddal_rf_fpga_lock(-1), -EBADF);
    EXPECT_EQ(ddal_rf_fpga_unlock(-1), -EBADF);
    EXPECT_EQ(ddal_rf_fpga_read_fd(-1, 0, 4, nullptr), -EINVAL);
    EXPECT_EQ(ddal_rf_fpga_write_fd(-1, 0, 4, nullptr), -EINVAL);
    EXPECT_EQ(log.take(),
              (Lines{"3 ddal_rf_fpga_open: The device of id 4 does not exist",
                     "3 ddal_rf_fpga_close: The ddal_rf_fpga_close failed to close fd -1: Bad file descriptor",
                     "3 ddal_rf_fpga_lock: The ddal_rf_fpga_lock failed to lock fd -1: Bad file descriptor",
                     "3 ddal_rf_fpga_unlock: The ddal_rf_fpga_unlock failed to unlock fd -1: Bad file descriptor",
                     "3 ddal_rf_fpga_read_fd: fpga read buffer is NULL",
                     "3 ddal_rf_fpga_write_fd: fpga write buffer is NULL"}));

    static int opened;
    Sweep("ddal_rf_fpga_open and _close",
          [] {
              const int result = ddal_rf_fpga_open(2, &opened);
              return result == 0 ? ddal_rf_fpga_close(opened) : result;
          })
        .after([](const Outcome &outcome) { EXPECT_TRUE(outcome.result != -ENOENT || opened == -1); })
        .when("open", fails_with_errno("3 ddal_rf_fpga_open: can't open device /dev/fpga_rf2: %m"))
        .when("close", fails_with_errno_or(0, {"3 ddal_rf_fpga_close: The ddal_rf_fpga_close failed to close fd *"}))
        .run();
}

class OpenDevice {
public:
    explicit OpenDevice(uint32_t device) { EXPECT_EQ(ddal_rf_fpga_open(device, &fd), 0); }
    ~OpenDevice() { EXPECT_EQ(ddal_rf_fpga_close(fd), 0); }
    int fd = -1;
};

TEST(RfFpgaBlock, ClearsAndSetsBitsPerByte)
{
    const OpenDevice device(1);
    const uint8_t old[] = {0x00, 0xFF, 0xF0, 0x0F, 0x55}, clear[] = {0x00, 0xFF, 0x30, 0x00};
    const uint8_t set[] = {0x00, 0x00, 0x01, 0xF0}; // the last two lie outside the cleared bits
    uint8_t seen[5] = {};
    EXPECT_EQ(ddal_rf_fpga_write_fd(device.fd, 0x31, 5, old), 5);
    EXPECT_EQ(ddal_rf_fpga_masked_write_fd(device.fd, 0x31, 4, clear, set), 4);
    EXPECT_EQ(ddal_rf_fpga_read_fd(device.fd, 0x31, 5, seen), 5);
    EXPECT_THAT(seen, ElementsAre(0x00, 0x00, 0xC1, 0xFF, 0x55));

    LogWatch log;
    EXPECT_EQ(ddal_rf_fpga_masked_write_fd(-1, 0, 0, nullptr, nullptr), 0);
    EXPECT_EQ(ddal_rf_fpga_masked_write_fd(-1, 0, 4, nullptr, set), -EINVAL);
    EXPECT_EQ(ddal_rf_fpga_masked_write_fd(-1, 0, 4, clear, nullptr), -EINVAL);
    EXPECT_THAT(log.take(),
                ElementsAre(testing::MatchesRegex("3 ddal_rf_fpga_masked_write_fd: clear \\(nil\\) set 0x[0-9a-f]+"),
                            testing::MatchesRegex("3 ddal_rf_fpga_masked_write_fd: clear 0x[0-9a-f]+ set \\(nil\\)")));
    // Beyond the end of the device: the read fails, so nothing is written.
    EXPECT_EQ(ddal_rf_fpga_masked_write_fd(device.fd, 0xFFFE, 4, clear, set), -ENOSPC);
    EXPECT_EQ(ctl("rf-fpga1 get 0xFFFF"), "0x00\n");
}

TEST(RfFpgaBlock, SurvivesEveryFailureWithTheLockReleased)
{
    static uint8_t bits[16];
    static int fd;
    const std::string lock = "3 ddal_rf_fpga_lock: The ddal_rf_fpga_lock failed to lock fd *";
    const std::string unlock = "3 ddal_rf_fpga_unlock: The ddal_rf_fpga_unlock failed to unlock fd *";
    const OpenDevice other(0);
    fd = other.fd;
    bool unlock_failed = false;
    Sweep("ddal_rf_fpga_masked_write_fd", [] { return ddal_rf_fpga_masked_write_fd(fd, 0, sizeof bits, bits, bits); })
        .succeeds(sizeof bits)
        .when("flock/ENOLCK", in_turn({fails_with_errno_or(0, {lock}), fails(sizeof bits, {unlock})}))
        .when("pread/EIO",
              fails_with_errno("3 ddal_rf_fpga_read_fd: fpga read failed(fd " + std::to_string(fd) + "): %m"))
        .when("pread/end", fails(-ENOSPC, {}))
        .when("pwrite/EIO", fails_with_errno("3 ddal_rf_fpga_write_fd: fpga write failed: %m"))
        .when("pwrite/end", fails(-ENOSPC, {}))
        .after([&](const Outcome &outcome) {
            unlock_failed = !outcome.lines.empty() && outcome.lines[0].starts_with("3 ddal_rf_fpga_unlock");
            const int probe = open("/dev/fpga_rf0", O_RDONLY | O_CLOEXEC);
            EXPECT_EQ(flock(probe, LOCK_EX | LOCK_NB), unlock_failed ? -1 : 0);
            close(probe);
            ddal_rf_fpga_unlock(fd);
        })
        .run();
}

TEST(RfFpgaLock, KeepsOtherDescriptorsOut)
{
    const OpenDevice mine(3), others(3);
    ASSERT_EQ(ddal_rf_fpga_lock(mine.fd), 0);
    auto waiting = std::async(std::launch::async, [&] { return ddal_rf_fpga_lock(others.fd); });
    EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    EXPECT_EQ(ddal_rf_fpga_unlock(mine.fd), 0);
    EXPECT_EQ(waiting.get(), 0);
}

// Each of two writers has one nibble of every byte, in overlapping blocks. A lost write, or an old nibble that the
// other's read-modify-write restores, shows when a writer reads its nibbles again.
int write_nibbles(uint32_t address, unsigned shift, int rounds)
{
    constexpr uint32_t kLength = 64;
    const OpenDevice device(0);
    for (int round = 1; round <= rounds; ++round) {
        uint8_t clear[kLength], set[kLength], seen[kLength];
        const auto nibble = static_cast<uint8_t>((round % 16) << shift);
        std::fill_n(clear, kLength, static_cast<uint8_t>(0xF << shift));
        std::fill_n(set, kLength, nibble);
        if (ddal_rf_fpga_masked_write_fd(device.fd, address, kLength, clear, set) != static_cast<int>(kLength) ||
            ddal_rf_fpga_read_fd(device.fd, address, kLength, seen) != static_cast<int>(kLength))
            return 2;
        for (const uint8_t byte : seen)
            if ((byte & (0xF << shift)) != nibble)
                return 1;
    }
    return 0;
}

TEST(RfFpgaLock, LetsTwoProcessesChangeOverlappingBlocksWithoutLoss)
{
    constexpr int kRounds = 1000;
    const pid_t low = start_child([] { return write_nibbles(0x400, 0, kRounds); });
    const pid_t high = start_child([] { return write_nibbles(0x420, 4, kRounds); });
    EXPECT_EQ(wait_for_child(low), 0);
    EXPECT_EQ(wait_for_child(high), 0);
    uint32_t words[24] = {};
    ASSERT_EQ(ddal_rf_fpga_read(0x400, 24, words, 0), 24);
    for (int i = 0; i < 24; ++i) // 1000 % 16 = 8
        EXPECT_EQ(words[i], i < 8 ? 0x08080808u : i < 16 ? 0x88888888u : 0x80808080u) << i;
}

} // namespace
