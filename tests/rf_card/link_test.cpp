// The packet link and the commands, byte for byte, against a scripted loader.
#include <array>
#include <cerrno>
#include <csignal>
#include <functional>
#include <numeric>
#include <string>
#include <sys/time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "rf_card/command.h"
#include "rf_card/scripted_line.h"
#include "rf_card/uart.h"
#include "support/log_watch.h"

using namespace ddal::rf_card;
using namespace testing_rf_card;
using testing_board::LogWatch;

namespace {

using Lines = std::vector<std::string>;

const Bytes kAck{0x00};
const Bytes kDone = kAck + framed({0x3B, 0x00});

uint32_t send_version_request(Link &link)
{
    uint8_t payload[] = {0x19};
    return bsl_tx_pkt(link, {sizeof payload, payload});
}

Bytes counting(size_t count)
{
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), uint8_t{1});
    return bytes;
}

} // namespace

TEST(SendPacket, FramesThePayloadAndNamesTheLoadersRefusals)
{
    ScriptedLine good{kAck};
    EXPECT_EQ(send_version_request(good), 0u);
    EXPECT_EQ(good.stream.sent, (Bytes{0x80, 0x01, 0x00, 0x19, 0xE8, 0x62}));

    struct Case {
        uint8_t acknowledgement;
        const char *name;
    };
    for (const Case &c : {Case{0x51, "HEADER_INCORRECT"}, Case{0x52, "CHECKSUM_INCORRECT"}, Case{0x53, "PKT_SIZE_ZERO"},
                          Case{0x54, "PKT_SIZE_EXCEEDS_BUFFER"}, Case{0x55, "UNKNOWN_ERROR"},
                          Case{0x56, "UNKNOWN_BAUD_RATE"}, Case{0x60, "UNKNOWN"}, Case{0xFF, "UNKNOWN"}}) {
        ScriptedLine line{{c.acknowledgement}};
        LogWatch log;
        EXPECT_EQ(send_version_request(line), 0x100u | c.acknowledgement);
        char text[128];
        snprintf(text, sizeof text, "3 bsl_tx_pkt: BSL: Received UART error message: %s (0x%02x)", c.name,
                 c.acknowledgement);
        EXPECT_EQ(log.take(), Lines{text});
        EXPECT_EQ(line.stream.flushed, "oi");
    }
}

TEST(SendPacket, DistinguishesSilenceFromReadAndWriteErrors)
{
    const std::string no_answer = "3 bsl_tx_pkt: BSL: ERROR: Timeout waiting for TX response";
    {
        ScriptedLine line;
        LogWatch log;
        EXPECT_EQ(send_version_request(line), BSL_ERR_TIMEOUT);
        EXPECT_EQ(log.take(), Lines{no_answer});
        EXPECT_DOUBLE_EQ(line.seconds(), 10);
    }
    {
        ScriptedLine line;
        line.stream.read_error = EIO;
        LogWatch log;
        EXPECT_EQ(send_version_request(line), BSL_ERR_READ);
        EXPECT_EQ(log.take(), Lines{no_answer});
    }
    {
        ScriptedLine line{kAck};
        line.stream.writes_left = 3; // header and length are sent, the payload is not
        LogWatch log;
        EXPECT_EQ(send_version_request(line), BSL_ERR_WRITE);
        EXPECT_EQ(log.take(), (Lines{"7 bsl_write_bytes: write error: Input/output error",
                                     "3 bsl_tx_pkt: BSL: ERROR: Unable to send BSL packet"}));
    }
    {
        ScriptedLine line{kAck};
        line.stream.writes_left = 4; // only the CRC is lost: the loader notices that, so sending continues
        LogWatch log;
        EXPECT_EQ(send_version_request(line), 0u);
        EXPECT_EQ(log.take(), Lines(2, "3 fpga_putchar: BSL: ERROR: writing char to BSL UART failed"));
    }
}

TEST(SendPacket, KeepsTheGapAfterTheLastByteReceived)
{
    ScriptedLine line{kDone + kDone};
    uint8_t payload[] = {0x13};
    ASSERT_EQ(bsl_toggle_info(line), 0u);
    EXPECT_TRUE(line.clock.sleeps.empty()) << "nothing was received before";

    line.clock.now += 500;
    ASSERT_EQ(bsl_toggle_info(line), 0u);
    EXPECT_EQ(line.clock.sleeps, std::vector<uint64_t>{1'000'000 / 833 - 500});

    // The acknowledgement restarts the gap, and a pause of its length needs no sleep.
    line.clock.sleeps.clear();
    line.clock.now += 1'000'000 / 833;
    bsl_tx_pkt(line, {sizeof payload, payload});
    EXPECT_TRUE(line.clock.sleeps.empty());
}

TEST(Trace, ShowsEveryByteOfBothDirectionsAboveLevelOne)
{
    for (const int verbose : {1, 2}) {
        ScriptedLine line{{0x52, 0x13, 0x37}, verbose};
        LogWatch log;
        send_version_request(line);
        const Lines sent{"7 bsl_write_byte: uart:7, data:0x80", "7 bsl_write_byte: uart:7, data:0x01",
                         "7 bsl_write_byte: uart:7, data:0x00", "7 bsl_write_byte: uart:7, data:0x19",
                         "7 bsl_write_byte: uart:7, data:0xe8", "7 bsl_write_byte: uart:7, data:0x62",
                         "7 bsl_read_byte: uart:7, data:0x52"};
        Lines expected = verbose > 1 ? sent : Lines{};
        expected.push_back("3 bsl_tx_pkt: BSL: Received UART error message: CHECKSUM_INCORRECT (0x52)");
        EXPECT_EQ(log.take(), expected);
    }
}

TEST(ReceivePacket, NamesTheMissingPartAndListensUntilTheLineIsQuiet)
{
    const std::string start = "3 bsl_rx_pkt: BSL: ERROR: ";
    const Bytes good = framed({0x3A, 0x11, 0x22});
    Bytes swapped = good;
    std::swap(swapped[6], swapped[7]);
    const Bytes tail{0x01, 0x02, 0x03};
    char crc[8], crc_swapped[8];
    snprintf(crc, sizeof crc, "%02x%02x", good[7], good[6]);
    snprintf(crc_swapped, sizeof crc_swapped, "%02x%02x", good[6], good[7]);
    struct Case {
        Bytes incoming;
        uint32_t code;
        std::string line;
        double seconds;
    };
    for (const Case &c : {
             Case{good, 0, "", 0},
             Case{{}, 1029, start + "Timeout waiting for hdr", 20},
             Case{{0x81}, 1031, start + "First RX byte not hdr (0x81)", 10},
             Case{Bytes{0x00} + good, 1031, start + "First RX byte not hdr (0x00)", 10},
             Case{{0x80}, 1029, start + "Timeout waiting for size 1", 20},
             Case{{0x80, 0x03}, 1029, start + "Timeout waiting for size 2", 20},
             Case{{0x80, 0x03, 0x00}, 1029, start + "Timeout waiting for data byte 2 of 3", 20},
             Case{{0x80, 0x03, 0x00, 0x3A, 0x11}, 1029, start + "Timeout waiting for data byte 4 of 3", 20},
             Case{{0x80, 0xFF, 0xFF, 0x3A}, 1029, start + "Timeout waiting for data byte 3 of 65535", 20},
             Case{{0x80, 0x01, 0x00, 0x3A}, 1029, start + "Timeout waiting for crc byte 1", 20},
             Case{{0x80, 0x01, 0x00, 0x3A, 0x00}, 1029, start + "Timeout waiting for crc byte 2", 20},
             Case{swapped + tail, 1032, start + "CRC check failed. Calc = 0x" + crc + ", Rcvd = 0x" + crc_swapped, 10},
         }) {
        ScriptedLine line{c.incoming};
        LogWatch log;
        Bytes room(kPacketRoom);
        bsl_packet packet{0, room.data()};
        EXPECT_EQ(bsl_rx_pkt(line, packet), c.code) << c.line;
        EXPECT_EQ(log.take(), c.line.empty() ? Lines{} : Lines{c.line});
        EXPECT_TRUE(line.stream.incoming.empty()) << "the rest was discarded";
        EXPECT_DOUBLE_EQ(line.seconds(), c.seconds) << c.line;
    }
}

TEST(ReceivePacket, EndsAtOnceWhenTheUartCannotBeRead)
{
    ScriptedLine line{{0x80, 0x02}};
    line.stream.read_error = EIO;
    LogWatch log;
    Bytes room(kPacketRoom);
    bsl_packet packet{0, room.data()};
    EXPECT_EQ(bsl_rx_pkt(line, packet), BSL_ERR_READ);
    EXPECT_EQ(log.take(), Lines{"3 bsl_rx_pkt: BSL: ERROR: Timeout waiting for size 2"});
    EXPECT_DOUBLE_EQ(line.seconds(), 0);
}

TEST(CoreResponse, MustBeAMessageWithStatusZero)
{
    const std::string start = "3 get_bsl_resp: BSL: ";
    struct Case {
        Bytes payload;
        uint32_t code;
        std::string line;
    };
    for (const Case &c : {
             Case{{0x3B, 0x00}, 0, ""},
             Case{{0x3B, 0x01}, 0x201, "Received BSL Core error: FLASH_WRITE_CHECK_FAILED (0x01)"},
             Case{{0x3B, 0x02}, 0x202, "Received BSL Core error: FLASH_FAIL_BIT_SET (0x02)"},
             Case{{0x3B, 0x03}, 0x203, "Received BSL Core error: VOLTAGE_CHANGE_DURING_PROGRAM (0x03)"},
             Case{{0x3B, 0x04}, 0x204, "Received BSL Core error: BSL_LOCKED (0x04)"},
             Case{{0x3B, 0x05}, 0x205, "Received BSL Core error: PASSWORD_ERROR (0x05)"},
             Case{{0x3B, 0x06}, 0x206, "Received BSL Core error: BYTE_WRITE_FORBIDDEN (0x06)"},
             Case{{0x3B, 0x07}, 0x207, "Received BSL Core error: UNKNOWN_COMMAND (0x07)"},
             Case{{0x3B, 0x08}, 0x208, "Received BSL Core error: PACKET_LENGTH_EXCEEDS_BUFFER_SIZE (0x08)"},
             Case{{0x3B, 0x77}, 0x277, "Received BSL Core error: UNKNOWN (0x77)"},
             Case{{0x3A, 0x00}, 1037, "ERROR: Received BSL data when message was expected."},
             Case{{0x12, 0x00}, 1037, "ERROR: Unrecognized BSL response type (0x12) received"},
             Case{{0x3B}, 1037, "ERROR: Unrecognized BSL response type (0x3b) received"},
             Case{{}, 1037, "ERROR: Unrecognized BSL response type (0x00) received"},
         }) {
        // The packet before it leaves a success in the buffer. An empty packet must not find it there.
        ScriptedLine line{framed({0x3B, 0x00}) + framed(c.payload)};
        ASSERT_EQ(get_bsl_resp(line), 0u);
        LogWatch log;
        EXPECT_EQ(get_bsl_resp(line), c.code);
        EXPECT_EQ(log.take(), c.line.empty() ? Lines{} : Lines{start + c.line});
    }

    ScriptedLine silent;
    LogWatch log;
    EXPECT_EQ(get_bsl_resp(silent), BSL_ERR_TIMEOUT);
    EXPECT_EQ(log.take(), (Lines{"3 bsl_rx_pkt: BSL: ERROR: Timeout waiting for hdr",
                                 "3 get_bsl_resp: BSL: ERROR: No response message"}));
}

TEST(Commands, SendTheirFieldsLowByteFirst)
{
    const Bytes block = counting(3);
    struct Case {
        const char *name;
        std::function<uint32_t(Link &)> run;
        Bytes payload;
        Bytes answer;
    };
    const auto baud = [](uint32_t rate) { return [rate](Link &link) { return bsl_change_baud(link, rate); }; };
    for (const Case &c : {
             Case{"write",
                  [&](Link &l) { return bsl_rx_data_blk(l, 0x123456, block.data(), 3); },
                  {0x10, 0x56, 0x34, 0x12, 1, 2, 3},
                  kDone},
             Case{"password", [&](Link &l) { return bsl_rx_password(l, block.data(), 3); }, {0x11, 1, 2, 3}, kDone},
             Case{"erase", [](Link &l) { return bsl_erase_segment(l, 0x8100); }, {0x12, 0x00, 0x81, 0x00}, kDone},
             Case{"info", [](Link &l) { return bsl_toggle_info(l); }, {0x13}, kDone},
             Case{"run", [](Link &l) { return bsl_load_pc(l, 0x4400); }, {0x17, 0x00, 0x44, 0x00}, kAck},
             Case{"9600", baud(9600), {0x52, 0x02}, kAck},
             Case{"19200", baud(19200), {0x52, 0x03}, kAck},
             Case{"38400", baud(38400), {0x52, 0x04}, kAck},
             Case{"57600", baud(57600), {0x52, 0x05}, kAck},
             Case{"115200", baud(115200), {0x52, 0x06}, kAck},
             Case{"1200", baud(1200), {0x52, 0x02}, kAck},
         }) {
        ScriptedLine line{c.answer};
        EXPECT_EQ(c.run(line), 0u) << c.name;
        EXPECT_EQ(line.stream.sent, framed(c.payload)) << c.name;
    }
}

TEST(Commands, LogARefusedPacketUnderTheirName)
{
    const std::string refused = "3 bsl_tx_pkt: BSL: Received UART error message: PKT_SIZE_ZERO (0x53)";
    uint8_t room[256];
    uint16_t crc;
    struct Case {
        std::string name;
        std::function<uint32_t(Link &)> run;
    };
    for (const Case &c : {Case{"bsl_rx_data_blk", [&](Link &l) { return bsl_rx_data_blk(l, 0, room, 1); }},
                          Case{"bsl_rx_password", [&](Link &l) { return bsl_rx_password(l, room, 1); }},
                          Case{"bsl_erase_segment", [](Link &l) { return bsl_erase_segment(l, 0); }},
                          Case{"bsl_toggle_info", [](Link &l) { return bsl_toggle_info(l); }},
                          Case{"bsl_load_pc", [](Link &l) { return bsl_load_pc(l, 0); }},
                          Case{"bsl_tx_data_blk", [&](Link &l) { return bsl_tx_data_blk(l, 0, 1, room); }},
                          Case{"bsl_tx_bsl_version", [&](Link &l) { return bsl_tx_bsl_version(l, room); }},
                          Case{"bsl_crc_check", [&](Link &l) { return bsl_crc_check(l, 0, 1, &crc); }},
                          Case{"bsl_change_baud", [](Link &l) { return bsl_change_baud(l, 9600); }}}) {
        ScriptedLine line{{0x53}};
        LogWatch log;
        EXPECT_EQ(c.run(line), 0x153u);
        Lines expected{refused, "3 " + c.name + ": BSL: ERROR: No response byte"};
        if (c.name == "bsl_change_baud")
            expected.push_back("3 BSL: ERROR: Response byte wrong (153)");
        EXPECT_EQ(log.take(), expected);
    }
}

TEST(DataCommands, CopyOnlyTheRequestedBytes)
{
    const Bytes untouched(300, 0xEE);
    const auto lengths = [](const std::string &name, int expected, int received) {
        return Lines{"3 " + name + ": BSL: ERROR: Did not receive the expected amount of data",
                     "3 " + name + ": BSL: ERROR: expected=" + std::to_string(expected) +
                         " received=" + std::to_string(received)};
    };
    struct Case {
        std::string name;
        std::function<uint32_t(Link &, uint8_t *)> run;
        Bytes response;
        uint32_t code;
        size_t copied;
        Lines lines;
    };
    const auto read4 = [](Link &l, uint8_t *to) { return bsl_tx_data_blk(l, 0x9000, 4, to); };
    const auto version = [](Link &l, uint8_t *to) { return bsl_tx_bsl_version(l, to); };
    const auto crc = [](Link &l, uint8_t *to) { return bsl_crc_check(l, 0x9000, 8, reinterpret_cast<uint16_t *>(to)); };
    const std::string blk = "bsl_tx_data_blk", ver = "bsl_tx_bsl_version", chk = "bsl_crc_check";
    for (const Case &c : {
             Case{blk, read4, Bytes{0x3A} + counting(4), 0, 4, {}},
             Case{blk, read4, Bytes{0x3A} + counting(3), 1037, 0, lengths(blk, 4, 3)},
             Case{blk, read4, Bytes{0x3A} + counting(5), 1037, 0, lengths(blk, 4, 5)},
             Case{blk, read4, {0x3B, 0x00}, 0, 0, {}},
             Case{blk,
                  read4,
                  {0x3B, 0x04},
                  0x204,
                  0,
                  {"3 " + blk + ": BSL: Received BSL Core error: BSL_LOCKED (0x04)"}},
             Case{blk,
                  read4,
                  {0x44, 1},
                  1037,
                  0,
                  {"3 " + blk + ": BSL: ERROR: Received unexpected response type (0x44)"}},
             Case{blk, read4, {}, 1037, 0, {"3 " + blk + ": BSL: ERROR: Received unexpected response type (0x00)"}},
             Case{ver, version, Bytes{0x3A} + counting(4), 0, 4, {}},
             Case{ver, version, Bytes{0x3A} + counting(256), 0, 256, {}},
             Case{ver, version, Bytes{0x3A} + counting(257), 1037, 0, lengths(ver, 256, 257)},
             Case{chk, crc, {0x3A, 0x34, 0x12}, 0, 2, {}},
             Case{chk, crc, {0x3A, 0x34}, 1037, 0, lengths(chk, 2, 1)},
             Case{chk, crc, {0x3A}, 1037, 0, lengths(chk, 2, 0)},
             Case{chk, crc, {0x3A, 1, 2, 3}, 1037, 0, lengths(chk, 2, 3)},
             Case{chk, crc, {0x3B, 0x00}, 0, 0, {}},
         }) {
        ScriptedLine line{kAck + framed(c.response)};
        LogWatch log;
        alignas(2) uint8_t to[300];
        std::copy(untouched.begin(), untouched.end(), to);
        EXPECT_EQ(c.run(line, to), c.code) << c.name;
        EXPECT_EQ(log.take(), c.lines);
        const Bytes data(c.response.begin() + (c.copied ? 1 : 0),
                         c.response.begin() + (c.copied ? 1 + static_cast<long>(c.copied) : 0));
        EXPECT_TRUE(std::equal(data.begin(), data.end(), to)) << c.name;
        EXPECT_TRUE(std::equal(to + c.copied, to + sizeof to, untouched.begin())) << c.name;
    }
}

TEST(Commands, RefuseOversizedDataBeforeTheySendAnything)
{
    Bytes room(65536);
    struct Case {
        std::function<uint32_t(Link &)> run;
        uint32_t code;
        std::string line;
    };
    const std::string end = " too much data in a single packet. length=";
    for (const Case &c : {Case{[&](Link &l) { return bsl_tx_data_blk(l, 0, 251, room.data()); }, 1030,
                               "3 bsl_tx_data_blk: BSL: ERROR: Attempted to read" + end + "251, max=250"},
                          Case{[&](Link &l) { return bsl_rx_data_blk(l, 0, room.data(), 251); }, 1027,
                               "3 bsl_rx_data_blk: BSL: ERROR: Attempted to send" + end + "251, max=250"},
                          Case{[&](Link &l) { return bsl_rx_password(l, room.data(), 65535); }, 1027,
                               "3 bsl_rx_password: BSL: ERROR: Attempted to send" + end + "65535, max=65534"}}) {
        ScriptedLine line;
        LogWatch log;
        EXPECT_EQ(c.run(line), c.code);
        EXPECT_EQ(log.take(), Lines{c.line});
        EXPECT_TRUE(line.stream.sent.empty());
        EXPECT_DOUBLE_EQ(line.seconds(), 0);
    }
}

TEST(Transfers, GoInBlocksOf250AndStopAtTheFirstFailure)
{
    const Bytes data = counting(600);
    const auto part = [&](size_t from, size_t count, Bytes front) {
        return framed(front +
                      Bytes(data.begin() + static_cast<long>(from), data.begin() + static_cast<long>(from + count)));
    };
    {
        ScriptedLine line{kDone + kDone + kDone};
        LogWatch log;
        EXPECT_EQ(bsl_rx_data(line, 0x9000, data.data(), 600), 0u);
        EXPECT_EQ(line.stream.sent, part(0, 250, {0x10, 0x00, 0x90, 0x00}) + part(250, 250, {0x10, 0xFA, 0x90, 0x00}) +
                                        part(500, 100, {0x10, 0xF4, 0x91, 0x00}));
        EXPECT_EQ(log.take(), Lines{"6 BSL: Writing 600 bytes to uP flash @ 0x009000"});
    }
    {
        ScriptedLine line{kDone + kAck + framed({0x3B, 0x01}) + kDone};
        EXPECT_EQ(bsl_rx_data(line, 0x9000, data.data(), 600), 0x201u);
        EXPECT_EQ(line.stream.incoming.size(), kDone.size()) << "the third block was not sent";
    }
    {
        ScriptedLine line{kAck + part(0, 250, {0x3A}) + kAck + part(250, 250, {0x3A}) + kAck + part(500, 100, {0x3A})};
        Bytes back(600);
        EXPECT_EQ(bsl_tx_data(line, 0x9000, 600, back.data()), 0u);
        EXPECT_EQ(back, data);
    }
    ScriptedLine idle;
    EXPECT_EQ(bsl_rx_data(idle, 0, nullptr, 0), 0u);
    EXPECT_EQ(bsl_tx_data(idle, 0, 0, nullptr), 0u);
    EXPECT_TRUE(idle.stream.sent.empty());
}

TEST(Erase, CoversEverySegmentThatTheRangeTouches)
{
    struct Case {
        uint32_t start, length;
        std::vector<uint32_t> segments;
        uint32_t first, last;
    };
    for (const Case &c :
         {Case{0x8100, 0x300, {0x8000, 0x8200}, 0x8000, 0x83FF}, Case{0x8000, 1, {0x8000}, 0x8000, 0x81FF},
          Case{0x81FF, 1, {0x8000}, 0x8000, 0x81FF}, Case{0x81FF, 2, {0x8000, 0x8200}, 0x8000, 0x83FF},
          Case{0x8000, 512, {0x8000}, 0x8000, 0x81FF}, Case{0x8000, 513, {0x8000, 0x8200}, 0x8000, 0x83FF},
          Case{0x8100, 0, {}, 0, 0}, Case{0x0000, 1024, {0x0000, 0x0200}, 0x0200, 0x03FF}}) { // 0 counts as "not yet"
        Bytes answers, sent;
        for (uint32_t segment : c.segments) {
            answers = answers + kDone;
            sent = sent + framed({0x12, static_cast<uint8_t>(segment), static_cast<uint8_t>(segment >> 8), 0});
        }
        ScriptedLine line{answers};
        uint32_t first = 99, last = 99;
        EXPECT_EQ(bsl_erase(line, c.start, c.length, &first, &last), 0u);
        EXPECT_EQ(line.stream.sent, sent);
        EXPECT_EQ(first, c.first);
        EXPECT_EQ(last, c.last);
    }

    ScriptedLine line{kDone + kAck + framed({0x3B, 0x02}) + kDone};
    uint32_t last = 0;
    EXPECT_EQ(bsl_erase(line, 0x8000, 2048, nullptr, &last), 0x202u);
    EXPECT_EQ(last, 0x83FFu) << "the segment that failed is counted";
    EXPECT_EQ(line.stream.incoming.size(), kDone.size());
}

// Each signal interrupts a wait, which then continues with the time that is left.
TEST(Uart, SignalsDoNotLengthenAWait)
{
    static int left;
    left = 50;
    struct sigaction action {};
    action.sa_handler = [](int) {
        if (--left == 0)
            setitimer(ITIMER_REAL, std::array{itimerval{}}.data(), nullptr);
    };
    struct sigaction before {};
    sigaction(SIGALRM, &action, &before);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const itimerval every_20_ms{{0, 20'000}, {0, 20'000}};
    setitimer(ITIMER_REAL, &every_20_ms, nullptr);
    EXPECT_FALSE(UartStream{ends[0]}.wait_readable(200));
    EXPECT_GT(left, 25) << "it waited for the signals to end";
    setitimer(ITIMER_REAL, std::array{itimerval{}}.data(), nullptr);
    sigaction(SIGALRM, &before, nullptr);
    close(ends[0]);
    close(ends[1]);
}
