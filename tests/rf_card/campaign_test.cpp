// Every exchange of an upgrade, with every fault of its answer: the upgrade returns the result of its step, the log
// names the cause, the card is back in its application and the UART is closed.
#include <algorithm>
#include <iostream>

#include <gtest/gtest.h>

#include "rf_card/card.h"
#include "support/log_watch.h"
#include "support/resources.h"

using namespace testing_rf_card;
using testing_board::LogWatch;
using testing_board::Resources;

namespace {

enum Stage { kVersion, kBaud, kPassword, kAppVersion, kCompare, kErase, kProgram, kVerify, kNewVersion };

struct StageFailure {
    uint32_t status;
    const char *line; // line of the step itself
};

StageFailure failure_of(Stage stage)
{
    switch (stage) {
    case kVersion: break;
    case kBaud:
    case kPassword: return {0, "BSL: ERROR: Unable to codeload."};
    case kAppVersion:
    case kCompare: return {5, "BSL: ERROR: Unable to retreive current uP version number"};
    case kErase: return {6, "BSL: ERROR: Unable to erase!"};
    case kProgram: return {7, "BSL: ERROR: Codeload failed!"};
    case kVerify: return {12, "BSL: ERROR: Unable to verify codeloaded image"};
    case kNewVersion: return {1, "BSL: ERROR: Unable to read BSL version"};
    }
    return {99, ""};
}

// One course of an upgrade, as its exchanges.
struct Scenario {
    const char *name;
    const char *card; // version in flash before, "same" for the image's own
    int upgrade_all;
    uint32_t status;
    std::vector<Stage> stages;
    size_t first; // another scenario covers the exchanges before this one
};

const Scenario kScenarios[] = {
    {"new image",
     kFirstVersion,
     0,
     1,
     {kVersion, kBaud, kPassword, kAppVersion, kErase, kErase, kErase, kProgram, kProgram, kProgram, kProgram, kProgram,
      kVerify, kVerify, kVerify},
     0},
    {"same image", "same", 0, 0, {kVersion, kBaud, kPassword, kAppVersion, kCompare, kCompare, kCompare}, 4},
    {"loader too",
     kFirstVersion,
     1,
     1,
     {kVersion, kBaud, kPassword, kErase, kErase, kErase, kProgram, kProgram, kProgram, kProgram, kProgram, kVerify,
      kVerify, kVerify, kNewVersion},
     14},
};

enum class Effect {
    kNone, // the answer is good in the end
    kStep, // this exchange fails
    kDead, // this exchange and all later ones fail
    kNext, // the next exchange fails
};

struct FaultRow {
    const char *part;
    const char *fault;
    const char *milliseconds;
    Effect effect;
    const char *cause; // line that must be in the log
};

constexpr FaultRow kFaults[] = {
    {"ack", "lost", "", Effect::kStep, "Timeout waiting for TX response"},
    {"ack", "late", "5000", Effect::kNone, ""},
    {"ack", "late", "60000", Effect::kDead, "Timeout waiting for TX response"},
    {"ack", "garbled", "", Effect::kStep, "Received UART error message: UNKNOWN (0x24)"},
    {"ack", "noise", "", Effect::kStep, "First RX byte not hdr (0x13)"},
    {"ack", "silence", "", Effect::kDead, "Timeout waiting for TX response"},
    {"ack", "reset", "", Effect::kDead, "Timeout waiting for TX response"},
    {"response", "lost", "", Effect::kStep, "Timeout waiting for hdr"},
    {"response", "late", "5000", Effect::kNone, ""},
    {"response", "late", "60000", Effect::kDead, "Timeout waiting for hdr"},
    {"response", "garbled", "", Effect::kStep, "CRC check failed"},
    {"response", "swapped-crc", "", Effect::kStep, "CRC check failed"},
    {"response", "wrong-header", "", Effect::kStep, "First RX byte not hdr (0x81)"},
    {"response", "huge-length", "", Effect::kStep, "Timeout waiting for data byte"},
    {"response", "noise", "", Effect::kNext, "Received UART error message: UNKNOWN (0x13)"},
    {"response", "silence", "", Effect::kDead, "Timeout waiting for hdr"},
    {"response", "reset", "", Effect::kDead, "Timeout waiting for data byte"},
};

bool has_response(Stage stage)
{
    return stage != kBaud;
}

// Returns the exchange at which the upgrade stops, or the number of stages if it does not stop.
size_t stopping_exchange(const Scenario &scenario, size_t at, const FaultRow &fault)
{
    const size_t end = scenario.stages.size();
    const Stage stage = scenario.stages[at];
    switch (fault.effect) {
    case Effect::kNone: return end;
    case Effect::kNext:
        // The UART is set up again before the loader's new version is read, and the last exchange has no successor.
        return at + 1 < end && scenario.stages[at + 1] != kNewVersion ? at + 1 : end;
    case Effect::kStep:
        // An unknown loader is upgraded anyway, the password is sent twice, and the UART is set up again after the
        // change of its rate.
        if (stage == kVersion || stage == kPassword || (!has_response(stage) && std::string(fault.fault) == "noise"))
            return end;
        return at;
    case Effect::kDead: return stage == kVersion ? at + 1 : at;
    }
    return end;
}

bool has_line(const std::vector<std::string> &lines, const std::string &text)
{
    return std::any_of(lines.begin(), lines.end(),
                       [&](const std::string &line) { return line.find(text) != std::string::npos; });
}

std::string all_of(const std::vector<std::string> &lines)
{
    std::string text;
    for (const std::string &line : lines)
        text += line + "\n";
    return text;
}

void try_point(const Scenario &scenario, size_t at, const FaultRow &fault)
{
    SCOPED_TRACE(std::string(scenario.name) + ", exchange " + std::to_string(at + 1) + ", " + fault.part + " " +
                 fault.fault + " " + fault.milliseconds);
    reset_card();
    const std::string version = scenario.card;
    ctl("rf-card version " + (version == "same" ? digits(block("small-0x9000.bin")).substr(0, 16) : version));
    ctl("rf-card fault " + std::string(fault.fault) + " " + fault.part + " " + std::to_string(at + 1) + " " +
        fault.milliseconds);

    const Resources before;
    LogWatch log;
    const Upgrade done = upgrade(image("small.txt"), scenario.upgrade_all);
    const std::vector<std::string> lines = log.take();

    const size_t stop = stopping_exchange(scenario, at, fault);
    const bool stops = stop < scenario.stages.size();
    // If the loader is unknown, the image is always loaded.
    const uint32_t good = scenario.stages[at] == kVersion ? 1 : scenario.status;
    EXPECT_EQ(done.result, stops ? -1001 : 0);
    EXPECT_EQ(done.status, stops ? failure_of(scenario.stages[stop]).status : good);
    if (stops) {
        EXPECT_TRUE(has_line(lines, failure_of(scenario.stages[stop]).line)) << all_of(lines);
    }
    const bool shows = stops || fault.effect == Effect::kStep;
    if (shows && !(scenario.stages[at] == kBaud && !stops)) {
        EXPECT_TRUE(has_line(lines, fault.cause)) << all_of(lines);
    }
    EXPECT_EQ(card_state("mode"), "application");
    EXPECT_EQ(card_state("gap-violations"), "0");
    EXPECT_EQ(before.difference(), "");
}

} // namespace

TEST(FaultCampaign, LeavesTheCardInItsApplicationAfterEveryLinkFault)
{
    int points = 0;
    for (const Scenario &scenario : kScenarios) {
        if (std::string(scenario.card) == "same") { // the whole image must be there
            reset_card();
            ASSERT_EQ(upgrade(image("small.txt")).result, 0);
        }
        for (size_t at = scenario.first; at < scenario.stages.size(); ++at) {
            for (const FaultRow &fault : kFaults) {
                if (std::string(fault.part) == "response" && !has_response(scenario.stages[at]))
                    continue;
                try_point(scenario, at, fault);
                ++points;
            }
        }
    }
    std::cout << "fault campaign: " << points << " points" << std::endl;
    EXPECT_GT(points, 300);
}
