// Image files: corner cases by hand, whole images from an independent tool.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

#include <ddal/bsl.h>
#include <gtest/gtest.h>

#include "rf_card/card.h"
#include "support/log_watch.h"

using testing_board::LogWatch;
using testing_rf_card::block;
using testing_rf_card::image;

namespace {

using Lines = std::vector<std::string>;
using Bytes = std::vector<uint8_t>;

struct Block {
    uint32_t address;
    Bytes data;
    bool operator==(const Block &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Block &block)
{
    return out << "@" << std::hex << block.address << std::dec << " " << block.data.size() << " bytes";
}

struct Parsed {
    int result = 99;
    bool listed = false;
    Bytes version = Bytes(8, 0xEE);
    std::vector<Block> blocks;
};

std::string scratch(const std::string &name)
{
    return "/tmp/bsl-parser-" + std::to_string(getpid()) + "-" + name;
}

Parsed parse_descriptor(int fd, uint32_t size)
{
    Parsed parsed;
    bsl_record *list = nullptr;
    parsed.result = bsl_parse_file(&list, parsed.version.data(), fd, size);
    parsed.listed = list != nullptr;
    const bsl_record *previous = nullptr;
    for (const bsl_record *r = list; r; previous = r, r = r->next) {
        EXPECT_EQ(r->prev, previous);
        EXPECT_EQ(r->crc, bsl_crc_calc(r->data, r->length));
        parsed.blocks.push_back({r->address, Bytes(r->data, r->data + r->length)});
    }
    if (list)
        bsl_parse_release(list);
    return parsed;
}

Parsed parse_file(const std::string &path)
{
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const off_t size = lseek(fd, 0, SEEK_END);
    lseek(fd, 0, SEEK_SET);
    const Parsed parsed = parse_descriptor(fd, static_cast<uint32_t>(size));
    close(fd);
    return parsed;
}

Parsed parse(const std::string &text, long size = -1)
{
    const std::string path = scratch("image");
    std::ofstream(path, std::ios::binary) << text;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const Parsed parsed = parse_descriptor(fd, static_cast<uint32_t>(size < 0 ? static_cast<long>(text.size()) : size));
    close(fd);
    unlink(path.c_str());
    return parsed;
}

Lines fsm_failure(int state, int input, int position)
{
    char text[64];
    snprintf(text, sizeof text, "state = %d, input = 0x%02x", state, input);
    return {"3 bsl_file_fsm: BSL: File parser error: " + std::string(text),
            "3 bsl_parse_file: ERROR: bsl_parse_file = 0x2",
            "3 bsl_parse_file: BSL: ERROR: FSM returned an error at byte " + std::to_string(position)};
}

Lines operator+(Lines left, const Lines &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

} // namespace

TEST(Crc, MatchesTheCheckValueHoweverItIsFed)
{
    const std::string digits = "123456789";
    const auto *bytes = reinterpret_cast<const uint8_t *>(digits.data());
    EXPECT_EQ(bsl_crc_calc(bytes, 9), 0x29B1);
    EXPECT_EQ(bsl_crc_calc(nullptr, 0), 0xFFFF);

    Bytes data(1000);
    std::mt19937 random(7);
    for (uint8_t &byte : data)
        byte = static_cast<uint8_t>(random());
    for (uint32_t length = 0; length < 40; ++length) { // around the stride of the block form
        uint16_t crc = bsl_crc_init();
        for (uint32_t i = 0; i < length; ++i)
            crc = bsl_crc_update(crc, data[i]);
        EXPECT_EQ(bsl_crc_calc(data.data(), length), crc) << length;
    }
    EXPECT_EQ(bsl_crc_get_low_byte(0x1234), 0x34);
    EXPECT_EQ(bsl_crc_get_high_byte(0x1234), 0x12);
}

TEST(Parser, ReadsWellFormedFiles)
{
    struct Case {
        const char *text;
        int result;
        std::vector<Block> blocks;
    };
    for (const Case &c : {
             Case{"@4400\n31 40 00 24\nq\n", 1, {{0x4400, {0x31, 0x40, 0x00, 0x24}}}},
             Case{"@4400\r\n31 40 00 24\r\nQ", 1, {{0x4400, {0x31, 0x40, 0x00, 0x24}}}},
             Case{"\n @4400 \nab CD\n\n ef 1 \nq", 1, {{0x4400, {0xAB, 0xCD, 0xEF, 0x01}}}},
             Case{"@4400\n@5000\n11\nq\n", 1, {{0x5000, {0x11}}}},          // an address without data makes no record
             Case{"@4400\n314000\nq\n", 1, {{0x4400, {0x00}}}},             // one token, its low byte
             Case{"@44\n1 2\n@44\n3\nq", 1, {{0x44, {1, 2}}, {0x44, {3}}}}, // the same address again
             Case{"@44 00\n01\nq\n", 1, {{0x4400, {1}}}},                   // blanks inside an address
             Case{"@fffffff\n01\nq\n", 1, {{0xFFFFFFF, {1}}}},
             Case{"@4400\n11\n@12q", 1, {{0x4400, {0x11}}}}, // drops an address that is cut off
             Case{"q", 1, {}},
             Case{"@9000\n01 02 03 04 05 06 07 08\nq\nrubbish after the end", 0, {{0x9000, {1, 2, 3, 4, 5, 6, 7, 8}}}},
         }) {
        LogWatch log;
        const Parsed parsed = parse(c.text);
        EXPECT_EQ(parsed.result, c.result) << c.text;
        EXPECT_EQ(parsed.blocks, c.blocks) << c.text;
        EXPECT_EQ(log.take(), Lines{}) << c.text;
    }
}

// A failed parse returns 0 and changes neither list nor version.
TEST(Parser, EndsAtTheFirstFaultAndNamesItsPlace)
{
    const Lines too_long{"3 bsl_parse_file: BSL: ERROR: File read length exceeded"};
    std::string many;
    for (int i = 0; i < 257; ++i)
        many += "@" + std::to_string(1000 + i) + "\n11 22 33 \n";
    struct Case {
        std::string text;
        long size;
        Lines lines;
    };
    for (const Case &c : {
             Case{"31\nq", -1, fsm_failure(0, '3', 1)},
             Case{"@4400\n31q", -1, fsm_failure(4, 'q', 9)},
             Case{"@4400\n31 @", -1, fsm_failure(4, '@', 10)},
             Case{"@4400\n3x", -1, fsm_failure(4, 'x', 8)},
             Case{"@@", -1, fsm_failure(3, '@', 2)},
             Case{"@\n", -1, fsm_failure(3, '\n', 2)},
             Case{"@4400\n\t31", -1, fsm_failure(1, '\t', 7)},
             Case{"@12345678\n31\nq", -1,
                  Lines{"3 push_to_char_buffer: BSL: buffer overflow"} + fsm_failure(3, '8', 9)},
             Case{"@4400\n12345678 \nq", -1,
                  Lines{"3 push_to_char_buffer: BSL: buffer overflow"} + fsm_failure(4, '8', 14)},
             Case{"@4400\n31 40\n", -1, too_long},   // no "q"
             Case{"@4400\n31 40\nq\n", 8, too_long}, // the file has grown
             Case{"@4400\n31 40\n", 100, too_long},  // the file has shrunk
             Case{"@1\n1 2 3 4 5 6 7 8 \nq", -1,
                  Lines{"3 record_append: BSL: buffer overflow"} + fsm_failure(4, ' ', 19)},
             Case{many + "q", -1,
                  Lines{"3 record_create: BSL: ERROR: too many records, at most 256"} +
                      fsm_failure(1, '1', 256 * 16 + 7)},
         }) {
        LogWatch log;
        const Parsed parsed = parse(c.text, c.size);
        EXPECT_EQ(parsed.result, 0) << c.text;
        EXPECT_FALSE(parsed.listed) << c.text;
        EXPECT_EQ(parsed.version, Bytes(8, 0xEE)) << c.text;
        EXPECT_EQ(log.take(), c.lines) << c.text;
    }
    EXPECT_EQ(parse(many.substr(0, 256 * 16) + "q").blocks.size(), 256u) << "as many as there are slots";
}

TEST(Parser, EndsWhenTheFileCannotBeRead)
{
    LogWatch log;
    const int fd = open("/tmp", O_RDONLY | O_CLOEXEC);
    const Parsed parsed = parse_descriptor(fd, 100);
    close(fd);
    EXPECT_EQ(parsed.result, 0);
    EXPECT_FALSE(parsed.listed);
    EXPECT_EQ(log.take(), Lines{"3 bsl_parse_file: BSL: ERROR: File read error (" + std::to_string(-EISDIR) + ")"});
}

TEST(Parser, ReadsTheVersionFromTheFirstRecordThatHoldsAllOfIt)
{
    const std::string partial = "3 bsl_get_file_version: BSL: ERROR: Partial version detected";
    struct Case {
        const char *text;
        int result;
        Bytes version;
        Lines lines;
    };
    const Bytes none(8, 0xEE);
    for (const Case &c : {
             Case{"@8FFE\naa bb 1 2 3 4 5 6 7 8 \nq", 0, {1, 2, 3, 4, 5, 6, 7, 8}, {}},
             Case{"@8FFE\naa bb 1 2 3 4 5 6 7 \nq", 1, none, {partial}},
             Case{"@9000\n01 02 03 04\n@9000\n11 12 13 14 15 16 17 18\nq",
                  0,
                  {0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18},
                  {partial}},
             Case{"@9001\n01 02 03 04 05 06 07 08\nq", 1, none, {}},
             Case{"@8FF8\n01 02 03 04 05 06 07 08\nq", 1, none, {}}, // ends right before the version
         }) {
        LogWatch log;
        const Parsed parsed = parse(c.text);
        EXPECT_EQ(parsed.result, c.result) << c.text;
        EXPECT_EQ(parsed.version, c.version) << c.text;
        EXPECT_EQ(log.take(), c.lines) << c.text;
    }
}

TEST(Parser, ReportsThatThereIsNothingToRelease)
{
    parse("@4400\n31\nq"); // parsing releases the records
    LogWatch log;
    bsl_parse_release(nullptr);
    EXPECT_EQ(log.take(), Lines{"3 master_buffer_free: BSL: master buffer is not yet allocated"});
}

TEST(Record, IsFilledByHandWithItsCrc)
{
    Bytes data{1, 2, 3};
    bsl_record neighbour{};
    bsl_record record{0, 0, 0, nullptr, &neighbour, &neighbour};
    bsl_generate_pattern_record(&record, data.data(), 0x1234, 3);
    EXPECT_EQ(record.address, 0x1234u);
    EXPECT_EQ(record.length, 3u);
    EXPECT_EQ(record.crc, bsl_crc_calc(data.data(), 3));
    EXPECT_EQ(record.data, data.data());
    EXPECT_TRUE(record.next == nullptr && record.prev == nullptr);
}

TEST(Parser, ReadsTheImagesOfAnIndependentTool)
{
    struct Case {
        std::string name;
        int result;
        std::vector<std::pair<uint32_t, std::string>> blocks; // the address in the form of the block's file name
    };
    for (const Case &c : {
             Case{"one-byte", 1, {{0x4400, "0x4400"}}}, Case{"b250", 0, {{0x9000, "0x9000"}}},
             Case{"b251", 0, {{0x9000, "0x9000"}}}, Case{"b512", 0, {{0x9000, "0x9000"}}},
             Case{"b65535", 0, {{0x9000, "0x9000"}}}, Case{"b70000", 0, {{0x9000, "0x9000"}}},
             Case{"several", 0, {{0x4400, "0x4400"}, {0x9000, "0x9000"}, {0xFE00, "0xFE00"}}},
             Case{"type5", 1, {{0xEA00, "0xEA00"}}}, // the version of another board type
         }) {
        const Parsed parsed = parse_file(image(c.name + ".txt"));
        EXPECT_EQ(parsed.result, c.result) << c.name;
        ASSERT_EQ(parsed.blocks.size(), c.blocks.size()) << c.name;
        for (size_t i = 0; i < c.blocks.size(); ++i) {
            const Block expected{c.blocks[i].first, block(c.name + "-" + c.blocks[i].second + ".bin")};
            EXPECT_EQ(parsed.blocks[i], expected) << c.name;
            if (expected.address == 0x9000) {
                EXPECT_TRUE(std::equal(parsed.version.begin(), parsed.version.end(), expected.data.begin())) << c.name;
            }
        }
    }
}
