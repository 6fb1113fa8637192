// Diagnostics compared bit for bit with values worked out by hand.
#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sfp/modules.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;

namespace {

uint32_t measured(uint32_t diag)
{
    uint32_t bits = 0xDEADBEEF;
    EXPECT_EQ(ddal_sfp_diagnostic_get(DDAL_SFP_1, diag, &bits), 0);
    return bits;
}

void poke(unsigned offset, const std::string &digits, const char *memory = "diag")
{
    ctl("sfp poke 1 " + std::string(memory) + " " + std::to_string(offset) + " " + digits);
}

} // namespace

// In single precision, 0.0001 is 0x38D1B717 and 0.002 is 0x3B03126F; every product below is rounded once.
TEST(SfpDiagnostics, OfInternallyCalibratedModules)
{
    struct {
        const char *module;
        uint32_t bits[5];
    } const cases[] = {
        // 0x217C = 8572 / 256 = 33.484375; 32370 x 0.0001 = 3.237; 1319 x 0.002 = 2.638; 2635 and 3006 x 0.0001
        {"sx-850nm", {0x4205F000, 0x404F2B02, 0x4028D4FE, 0x3E86E979, 0x3E99E83E}},
        // 0x291A = 10522 / 256 = 41.1015625; 33345 x 0.0001 = 3.3345; 3000 x 0.002 = 6 and one unit in the last place
        {"base-t-2500", {0x42246800, 0x40556872, 0x40C00001, 0x3F000000, 0x3ECCCCCC}},
        // 0xEC80 = -4992 / 256 = -19.5; 36500; 65535 x 0.002 = 131.07; 1 x 0.0001; 0. Claims both calibrations.
        {"cwdm-1571nm-both", {0xC19C0000, 0x40699999, 0x430311EC, 0x38D1B717, 0x00000000}},
    };
    for (const auto &row : cases) {
        plug(1, row.module);
        for (uint32_t diag = 0; diag < 5; diag++)
            EXPECT_EQ(measured(diag), row.bits[diag]) << row.module << ", quantity " << diag;
    }
}

TEST(SfpDiagnostics, OfAnExternallyCalibratedModule)
{
    plug(1, "lx-1310nm-external");
    // (6400 x 256 / 256 + 256 / 256) / 256 = 6401 / 256
    EXPECT_EQ(measured(DDAL_SFP_DIAG_TEMPERATURE), 0x41C80800u);
    // (33012 x 255 / 256 - 640 / 256) x 0.0001 = 32880.546875 x 0.0001
    EXPECT_EQ(measured(DDAL_SFP_DIAG_VOLTAGE), 0x40526F7Du);
    // (3507 x 259 / 256 - 37 / 256) x 0.002 = 3547.953125 x 0.002
    EXPECT_EQ(measured(DDAL_SFP_DIAG_TX_BIAS), 0x40E311ABu);
    // (5112 x 249 / 256 + 1290 / 256) x 0.0001 = 4977.2578125 x 0.0001
    EXPECT_EQ(measured(DDAL_SFP_DIAG_TX_POWER), 0x3EFED5E9u);
}

// The product of large raw value and slope exceeds the 24 bits of a single.
TEST(SfpDiagnostics, RoundsExternalProductsToSinglePrecision)
{
    plug(1, "lx-1310nm-external");
    struct {
        uint32_t diag;
        unsigned raw, slope, offset; // offsets in the memory
        const char *raw_digits, *slope_digits, *offset_digits;
        uint32_t bits;
    } const cases[] = {
        // -32768 x 65535 = -2147450880 exactly; + -32768 / 256 = -128; / 65536 = -32768 after rounding
        {DDAL_SFP_DIAG_TEMPERATURE, 96, 84, 86, "8000", "ffff", "8000", 0xC7000000},
        {DDAL_SFP_DIAG_TEMPERATURE, 96, 84, 86, "7fff", "ffff", "7fff", 0x46FFFE00},
        {DDAL_SFP_DIAG_TEMPERATURE, 96, 84, 86, "e667", "0155", "ffb3", 0xC2086468},
        // 51001 x 341 = 17391341 is odd and above 2^24: a tie, rounded to 17391340
        {DDAL_SFP_DIAG_VOLTAGE, 98, 88, 90, "c739", "0155", "cfc7", 0x40D93CC9},
        {DDAL_SFP_DIAG_TX_BIAS, 100, 76, 78, "c739", "0155", "0000", 0x4307DEAF},
        {DDAL_SFP_DIAG_TX_POWER, 102, 80, 82, "ffff", "ffff", "7fff", 0x44D1B5DC},
    };
    for (const auto &row : cases) {
        poke(row.raw, row.raw_digits);
        poke(row.slope, row.slope_digits);
        poke(row.offset, row.offset_digits);
        EXPECT_EQ(measured(row.diag), row.bits) << row.raw_digits << " x " << row.slope_digits;
    }
}

// Coefficients -1.25e-12, 3.5e-8, -2.75e-4, 1.015625, -7.3. Each step is one fused multiply-add. The comments on the
// right show the last bits of an evaluation that rounds products and sums separately.
TEST(SfpDiagnostics, EvaluatesReceivedPowerWithFusedSteps)
{
    plug(1, "lx-1310nm-external");
    struct {
        const char *raw;
        uint32_t bits;
    } const cases[] = {
        {"09a7", 0x3E059903}, {"04d2", 0x3DB64A7E} /* ..7D */, {"7530", 0xC1E3A181},
        {"9c40", 0xC307F02F}, {"c822", 0xC3E4C7E0} /* ..E2 */, {"ffff", 0xC4B30135} /* ..34 */,
    };
    for (const auto &row : cases) {
        poke(104, row.raw);
        EXPECT_EQ(measured(DDAL_SFP_DIAG_RX_POWER), row.bits) << row.raw;
    }
}

TEST(SfpDiagnostics, DependOnTheClaimsOfTheModule)
{
    plug(1, "lx-1310nm-external");
    const std::string name = "3 internal_calibration_get: ";
    const std::string unsupported = name + "diagnostics not supported by transceiver for sfpId: 0x10008";
    const std::string senseless = name + "both int and ext are zero, does not make sense for sfpId: 0x10008";
    struct {
        const char *type;
        int result;
        std::vector<std::string> lines;
        uint32_t temperature; // raw 0x1900: 25 internally, 25.00390625 externally
    } const cases[] = {
        {"68", 0, {}, 0x41C80000},       {"50", 0, {}, 0x41C80800},       {"70", 0, {}, 0x41C80000},
        {"40", -1001, {senseless}, 0},   {"c0", -1001, {unsupported}, 0}, {"e8", -1001, {unsupported}, 0},
        {"20", -1001, {unsupported}, 0}, {"00", -1001, {unsupported}, 0},
    };
    for (const auto &row : cases) {
        poke(92, row.type, "id");
        LogWatch log;
        uint32_t bits = 0;
        EXPECT_EQ(ddal_sfp_diagnostic_get(DDAL_SFP_1, DDAL_SFP_DIAG_TEMPERATURE, &bits), row.result) << row.type;
        EXPECT_EQ(bits, row.temperature) << row.type;
        EXPECT_EQ(log.take(), row.lines) << row.type;
    }
}

TEST(SfpDiagnostics, CheckTheModuleBeforeTheQuantity)
{
    plug(1, "sx-850nm");
    LogWatch log;
    uint32_t bits = 7;
    EXPECT_EQ(ddal_sfp_diagnostic_get(DDAL_SFP_1, 5, &bits), -1001);
    EXPECT_THAT(log.take(), testing::ElementsAre("3 ddal_sfp_diagnostic_get: not supported for sfpId: 0x10008"));
    EXPECT_EQ(ddal_sfp_diagnostic_get(0x10007, 5, &bits), -EINVAL);
    plug(2, "dac-no-diagnostics");
    EXPECT_EQ(ddal_sfp_diagnostic_get(DDAL_SFP_2, 5, &bits), -1001);
    EXPECT_THAT(log.take(), testing::ElementsAre("3 internal_calibration_get: diagnostics not supported by transceiver "
                                                 "for sfpId: 0x10009"));
    EXPECT_EQ(bits, 7u);
}

TEST(SfpDiagnostics, SurviveEveryFailure)
{
    plug(1, "lx-1310nm-external");
    uint32_t bits = 0;
    for (const uint32_t diag : {DDAL_SFP_DIAG_TX_POWER, DDAL_SFP_DIAG_RX_POWER})
        Sweep("ddal_sfp_diagnostic_get", [&] { return ddal_sfp_diagnostic_get(DDAL_SFP_1, diag, &bits); })
            .before([&] { bits = 7; })
            .after([&](const Outcome &seen) { EXPECT_EQ(bits == 7, seen.result != 0); })
            .when("open", fails_with_errno_or(0, {}))
            .when("pread/EIO", fails_with_errno_or(0, {}))
            .when("pread/end", fails(-EFAULT, {}))
            .run();
}

TEST(SfpFlags, FollowTheThresholds)
{
    struct {
        const char *change;
        uint16_t alarms, warnings;
    } const cases[] = {
        {"set 1 temperature 86", 0x0000, 0x8000},  {"set 1 temperature 91", 0x8000, 0x8000},
        {"set 1 temperature -11", 0x4000, 0x4000}, {"set 1 voltage 3.7", 0x2000, 0x2000},
        {"set 1 voltage 3.05", 0x0000, 0x1000},    {"set 1 bias 81", 0x0800, 0x0800},
        {"set 1 bias 2.5", 0x0000, 0x0400},        {"set 1 tx 1.1", 0x0200, 0x0200},
        {"set 1 tx 0.05", 0x0100, 0x0100},         {"set 1 rx 1.3", 0x0080, 0x0080},
        {"light 1 off", 0x0040, 0x0040},           {"set 1 rx 0.006", 0x0000, 0x0040},
    };
    for (const auto &row : cases) {
        ctl("sfp plug 1 describe");
        ctl(std::string("sfp ") + row.change);
        uint16_t alarms = 0xFFFF;
        uint16_t warnings = 0xFFFF;
        EXPECT_EQ(ddal_sfp_get_alarm_warning_flags(DDAL_SFP_1, &alarms, &warnings), 0);
        EXPECT_EQ(alarms, row.alarms) << row.change;
        EXPECT_EQ(warnings, row.warnings) << row.change;
    }
}

TEST(SfpFlags, SurviveEveryFailure)
{
    plug(1, "cwdm-1571nm-both");
    uint16_t alarms = 0;
    uint16_t warnings = 0;
    Sweep("ddal_sfp_get_alarm_warning_flags",
          [&] { return ddal_sfp_get_alarm_warning_flags(DDAL_SFP_1, &alarms, &warnings); })
        .before([&] { alarms = warnings = 0xAAAA; })
        .after([&](const Outcome &seen) {
            EXPECT_NE(alarms, 0xAAAA); // written even when its read fails
            if (seen.result == 0) {
                EXPECT_EQ(alarms, 0x6940);
                EXPECT_EQ(warnings, 0x6940);
            } else if (alarms == 0) {
                EXPECT_EQ(warnings, 0xAAAA); // not read after the failure
            }
        })
        .when("open", fails_with_errno_or(0, {}))
        .when("pread/EIO", fails_with_errno_or(0, {}))
        .when("pread/end", fails(-EFAULT, {}))
        .run();
}
