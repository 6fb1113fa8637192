// Identification of the recorded modules and of an empty cage.
#include <cerrno>
#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sfp/modules.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;

namespace {

struct Identity {
    const char *module;
    std::string texts;                // vendor, part, revision, serial number and date, as they are stored
    std::vector<uint32_t> compliance; // numbers of the bits that are set
    std::vector<uint32_t> numbers;    // bit rate, its limits above and below, wavelength, SFF-8472, connector
};

const Identity kIdentities[] = {
    {"sx-850nm", {"Mikrotik        S-85DLC05D      \0\0\0\0SG85M31401687   130424  ", 60}, {32}, {13, 0, 0, 850, 1, 7}},
    {"cwdm-1571nm-both",
     "TESTBENCH WDM 16TB-10G-CWDM-15719.99WDM9876543210XYZ19123100",
     {7, 22, 24, 61},
     {0x67, 5, 7, 1571, 8, 16}},
    {"dac-no-diagnostics",
     "PLAIN           CU3M                                        ",
     {0, 2, 4, 6, 15, 18, 56},
     {255, 0, 0, 256, 0, 14}},
};

using NumberGetter = int (*)(uint32_t, uint32_t *);

uint32_t number(NumberGetter get)
{
    uint32_t value = 0xDEAD;
    EXPECT_EQ(get(DDAL_SFP_1, &value), 0);
    return value;
}

template <size_t Size>
std::string text(int (*get)(uint32_t, char *))
{
    char bytes[Size];
    memset(bytes, '#', sizeof bytes);
    EXPECT_EQ(get(DDAL_SFP_1, bytes), 0);
    EXPECT_EQ(bytes[Size - 1], '\0');
    return {bytes, Size - 1};
}

std::vector<uint32_t> compliance_bits()
{
    uint8_t codes[8] = {};
    uint32_t list[64] = {};
    uint32_t count = 0;
    EXPECT_EQ(ddal_sfp_compliance_code_get(DDAL_SFP_1, codes), 0);
    EXPECT_EQ(ddal_sfp_interpret_compliance_codes(codes, list, 64, &count), 0);
    return {list, list + count};
}

} // namespace

TEST(SfpIdentity, IsReadFromEveryModule)
{
    for (const Identity &one : kIdentities) {
        SCOPED_TRACE(one.module);
        plug(1, one.module);
        EXPECT_EQ(text<17>(ddal_sfp_vendor_name_get) + text<17>(ddal_sfp_part_number_get) +
                      text<5>(ddal_sfp_revision_get) + text<17>(ddal_sfp_serial_number_get) +
                      text<9>(ddal_sfp_date_code_get),
                  one.texts);
        EXPECT_EQ(compliance_bits(), one.compliance);
        EXPECT_THAT(one.numbers,
                    testing::ElementsAre(number(ddal_sfp_bitrate_get), number(ddal_sfp_bitrate_upper_rate_limit_get),
                                         number(ddal_sfp_bitrate_lower_rate_limit_get), number(ddal_sfp_wavelength_get),
                                         number(ddal_sfp_sff_8472_compliance_code_get),
                                         number(ddal_sfp_connector_value_get)));
    }
}

TEST(SfpIdentity, MapsEveryConnectorCode)
{
    plug(1, "sx-850nm");
    for (unsigned code = 0; code < 256; code++) {
        const uint32_t expected = code <= 12                     ? code
                                  : code == 0x20                 ? 13
                                  : code == 0x21                 ? 14
                                  : code == 0x22                 ? 15
                                  : code >= 0x80 && code <= 0xff ? 16
                                                                 : 0;
        char digits[3];
        snprintf(digits, sizeof digits, "%02x", code);
        ctl(std::string("sfp poke 1 id 2 ") + digits);
        EXPECT_EQ(number(ddal_sfp_connector_value_get), expected) << code;
    }
}

TEST(SfpIdentity, WritesItsOutputsEvenWhenTheCageIsEmpty)
{
    ctl("sfp pull 1");
    LogWatch log;
    char name[17];
    char revision[5];
    memset(name, '#', sizeof name);
    memset(revision, '#', sizeof revision);
    EXPECT_EQ(ddal_sfp_vendor_name_get(DDAL_SFP_1, name), -ENXIO);
    EXPECT_EQ(name[16], '\0');
    EXPECT_EQ(ddal_sfp_revision_get(DDAL_SFP_1, revision), -ENXIO);
    EXPECT_EQ(revision[4], '\0');

    uint32_t value = 77;
    EXPECT_EQ(ddal_sfp_bitrate_get(DDAL_SFP_1, &value), -ENXIO);
    EXPECT_EQ(value, 0u); // stored although it has no meaning
    value = 77;
    EXPECT_EQ(ddal_sfp_connector_value_get(DDAL_SFP_1, &value), -ENXIO);
    EXPECT_EQ(ddal_sfp_wavelength_get(DDAL_SFP_1, &value), -ENXIO);
    EXPECT_EQ(value, 77u);
    EXPECT_THAT(log.take(), testing::IsEmpty());
}

TEST(SfpCompliance, CountsBitsFromTheLastByte)
{
    const uint8_t codes[8] = {0x80, 0, 0, 0, 0, 0, 0x01, 0x03}; // bits 63, 8, 1, 0
    for (unsigned bit = 0; bit < 256; bit++) {
        const bool is_set = bit == 63 || bit == 8 || bit == 1 || bit == 0;
        EXPECT_EQ(ddal_sfp_is_compliance_code_set(codes, static_cast<uint8_t>(bit)), is_set) << bit;
    }
    uint32_t list[4] = {};
    uint32_t count = 99;
    EXPECT_EQ(ddal_sfp_interpret_compliance_codes(codes, list, 3, &count), -1);
    EXPECT_EQ(count, 99u);
    EXPECT_EQ(ddal_sfp_interpret_compliance_codes(codes, list, 4, &count), 0);
    EXPECT_EQ(count, 4u);
    EXPECT_THAT(list, testing::ElementsAre(0, 1, 8, 63));

    const uint8_t none[8] = {};
    EXPECT_EQ(ddal_sfp_interpret_compliance_codes(none, list, 0, &count), 0);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(ddal_sfp_interpret_compliance_codes(codes, list, -1, &count), -1);
}

TEST(SfpMemory, ChecksCageAndMemoryInOrder)
{
    plug(1, "sx-850nm");
    uint8_t byte = 0;
    EXPECT_EQ(ddal_sfp_memory_read(0x10007, 0, 0, &byte, 1), -EINVAL);
    EXPECT_EQ(ddal_sfp_memory_read(0x1000a, 1, 0, &byte, 1), -EINVAL);
    EXPECT_EQ(ddal_sfp_memory_read(DDAL_SFP_1, 2, 0, &byte, 1), -EINVAL);
    EXPECT_EQ(ddal_sfp_memory_write(DDAL_SFP_1, 0, 0, &byte, 1), -EROFS);
    EXPECT_EQ(ddal_sfp_memory_write(0x10007, 0, 0, &byte, 1), -EROFS); // kept: the memory is checked before the cage
    EXPECT_EQ(ddal_sfp_memory_write(0x10007, 1, 0, &byte, 1), -EINVAL);
    EXPECT_EQ(ddal_sfp_memory_write(DDAL_SFP_1, 2, 0, &byte, 1), -EINVAL);
}

TEST(SfpMemory, EndsWhereTheMemoryEnds)
{
    plug(1, "base-t-2500");
    uint8_t bytes[4] = {};
    EXPECT_EQ(ddal_sfp_memory_read(DDAL_SFP_1, DDAL_SFP_MEMORY_DIAGNOSTICS, 128, bytes, 4), 0);
    EXPECT_EQ(memcmp(bytes, "CNS8", 4), 0);
    EXPECT_EQ(ddal_sfp_memory_read(DDAL_SFP_1, DDAL_SFP_MEMORY_ID, 252, bytes, 4), 0);
    EXPECT_EQ(ddal_sfp_memory_read(DDAL_SFP_1, DDAL_SFP_MEMORY_ID, 253, bytes, 4), -EFAULT);
    EXPECT_EQ(ddal_sfp_memory_read(DDAL_SFP_1, DDAL_SFP_MEMORY_ID, 0xFFFFFFFF, bytes, 4), -EFAULT);
    EXPECT_EQ(ddal_sfp_memory_write(DDAL_SFP_1, DDAL_SFP_MEMORY_DIAGNOSTICS, 252, bytes, 4), 0);
    EXPECT_EQ(ddal_sfp_memory_write(DDAL_SFP_1, DDAL_SFP_MEMORY_DIAGNOSTICS, 253, bytes, 4), -EFAULT);
    EXPECT_EQ(ddal_sfp_memory_write(DDAL_SFP_1, DDAL_SFP_MEMORY_DIAGNOSTICS, 256, bytes, 4), -EFBIG);
}

TEST(SfpMemory, AcceptsWritesToTheUserArea)
{
    plug(1, "sx-850nm");
    const uint8_t mark[4] = {0xde, 0xad, 0xbe, 0xef};
    uint8_t back[4] = {};
    EXPECT_EQ(ddal_sfp_memory_write(DDAL_SFP_1, DDAL_SFP_MEMORY_DIAGNOSTICS, 130, mark, sizeof mark), 0);
    EXPECT_EQ(ddal_sfp_memory_read(DDAL_SFP_1, DDAL_SFP_MEMORY_DIAGNOSTICS, 130, back, sizeof back), 0);
    EXPECT_EQ(memcmp(mark, back, sizeof mark), 0);
}

TEST(SfpMemory, SurvivesEveryFailure)
{
    plug(1, "sx-850nm");
    uint8_t bytes[4] = {};
    Sweep("ddal_sfp_memory_read", [&] { return ddal_sfp_memory_read(DDAL_SFP_1, 1, 96, bytes, 4); })
        .when("open", fails_with_errno_or(0, {}))
        .when("pread/EIO", fails_with_errno_or(0, {}))
        .when("pread/end", fails(-EFAULT, {}))
        .run();
    Sweep("ddal_sfp_memory_write", [&] { return ddal_sfp_memory_write(DDAL_SFP_1, 1, 130, bytes, 4); })
        .when("open", fails_with_errno_or(0, {}))
        .when("pwrite/EIO", fails_with_errno_or(0, {}))
        .when("pwrite/end", fails(-EFAULT, {}))
        .run();
}

// A failed read still writes the NUL of texts and the byte values; other outputs stay unchanged.
TEST(SfpIdentity, SurvivesEveryFailure)
{
    plug(1, "sx-850nm");
    static char text[17];
    static uint8_t codes[8];
    static uint32_t value;
    constexpr uint32_t kUntouched = 777;
    struct {
        const char *name;
        long (*operation)();
        int closing_nul; // position in a text, else -1
        bool is_byte;
    } const cases[] = {
        {"ddal_sfp_vendor_name_get", [] { return long{ddal_sfp_vendor_name_get(DDAL_SFP_1, text)}; }, 16, false},
        {"ddal_sfp_part_number_get", [] { return long{ddal_sfp_part_number_get(DDAL_SFP_1, text)}; }, 16, false},
        {"ddal_sfp_revision_get", [] { return long{ddal_sfp_revision_get(DDAL_SFP_1, text)}; }, 4, false},
        {"ddal_sfp_serial_number_get", [] { return long{ddal_sfp_serial_number_get(DDAL_SFP_1, text)}; }, 16, false},
        {"ddal_sfp_date_code_get", [] { return long{ddal_sfp_date_code_get(DDAL_SFP_1, text)}; }, 8, false},
        {"ddal_sfp_compliance_code_get", [] { return long{ddal_sfp_compliance_code_get(DDAL_SFP_1, codes)}; }, -1,
         false},
        {"ddal_sfp_bitrate_get", [] { return long{ddal_sfp_bitrate_get(DDAL_SFP_1, &value)}; }, -1, true},
        {"ddal_sfp_bitrate_upper_rate_limit_get",
         [] { return long{ddal_sfp_bitrate_upper_rate_limit_get(DDAL_SFP_1, &value)}; }, -1, true},
        {"ddal_sfp_bitrate_lower_rate_limit_get",
         [] { return long{ddal_sfp_bitrate_lower_rate_limit_get(DDAL_SFP_1, &value)}; }, -1, true},
        {"ddal_sfp_sff_8472_compliance_code_get",
         [] { return long{ddal_sfp_sff_8472_compliance_code_get(DDAL_SFP_1, &value)}; }, -1, true},
        {"ddal_sfp_wavelength_get", [] { return long{ddal_sfp_wavelength_get(DDAL_SFP_1, &value)}; }, -1, false},
        {"ddal_sfp_connector_value_get", [] { return long{ddal_sfp_connector_value_get(DDAL_SFP_1, &value)}; }, -1,
         false},
    };
    EXPECT_EQ(cases[0].operation(), 0); // reads the board type, which happens only once
    for (const auto &row : cases)
        Sweep(row.name, row.operation)
            .before([] {
                memset(text, '#', sizeof text);
                value = kUntouched;
            })
            .after([&](const Outcome &seen) {
                if (row.closing_nul >= 0) {
                    EXPECT_EQ(text[row.closing_nul], '\0') << row.name;
                }
                if (seen.result != 0) {
                    EXPECT_EQ(value != kUntouched, row.is_byte) << row.name;
                }
            })
            .when("open", fails_with_errno_or(0, {}))
            .when("pread/EIO", fails_with_errno_or(0, {}))
            .when("pread/end", fails(-EFAULT, {}))
            .run();
}
