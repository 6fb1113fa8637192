// The microcontroller's model driven by hand. It must be as strict as the real part, or tests against it prove nothing.
#include <gtest/gtest.h>

#include "daemon/models/microcontroller.h"

using namespace vboard;

namespace {

constexpr BoardTime kMs = 1'000'000;
using Bytes = std::vector<uint8_t>;

class MicrocontrollerTest : public testing::Test {
protected:
    void SetUp() override
    {
        part.set_power(true, now);
        pass(100);
    }

    void pass(BoardTime ms) { now += ms * kMs; }

    // Sets TEST and RST to bits 0 and 1 of each level, and holds each level for `hold`.
    void pins(std::initializer_list<int> levels, BoardTime hold = 10 * kMs)
    {
        for (int level : levels) {
            part.set_pins((level & 1) != 0, (level & 2) != 0, now);
            now += hold;
        }
    }
    void enter()
    {
        pins({0, 1, 0, 1, 3, 2});
        pass(250);
    }

    Bytes talk(const Bytes &payload, LineFormat format = {})
    {
        pass(2);
        const uint16_t crc = loader_crc(payload);
        Bytes packet{0x80, static_cast<uint8_t>(payload.size()), static_cast<uint8_t>(payload.size() >> 8)};
        packet.insert(packet.end(), payload.begin(), payload.end());
        packet.push_back(static_cast<uint8_t>(crc));
        packet.push_back(static_cast<uint8_t>(crc >> 8));
        part.receive(packet, format, now);
        pass(1000);
        return part.advance(format, now);
    }
    // Returns the status of a command that answers with a message.
    int status(const Bytes &payload)
    {
        const Bytes answer = talk(payload);
        return answer.size() == 8 && answer[0] == 0 && answer[4] == 0x3B ? answer[5] : -1;
    }
    void unlock() { ASSERT_EQ(status({0x11, 0xFF, 0xFF}), 0); }

    Microcontroller part;
    BoardTime now = 1000 * kMs;
};

} // namespace

TEST_F(MicrocontrollerTest, EntersItsLoaderOnlyOnTwoPulsesOfPlausibleLength)
{
    struct Case {
        std::initializer_list<int> levels;
        BoardTime hold;
        Microcontroller::Mode mode;
    };
    for (const Case &c :
         {Case{{0, 1, 0, 1, 3, 2}, 10 * kMs, Microcontroller::Mode::kStarting},
          Case{{2, 0, 1, 3, 2}, 10 * kMs, Microcontroller::Mode::kApplication},        // the reset sequence
          Case{{0, 1, 0, 1, 0, 2}, 10 * kMs, Microcontroller::Mode::kApplication},     // TEST low as RST rises
          Case{{2, 3, 2, 3, 2}, 10 * kMs, Microcontroller::Mode::kApplication},        // RST never low
          Case{{0, 1, 0, 1, 3, 2}, kMs / 100, Microcontroller::Mode::kApplication}}) { // too short to see
        pins({2});
        pins(c.levels, c.hold);
        EXPECT_EQ(part.mode(), c.mode);
    }
}

TEST_F(MicrocontrollerTest, IgnoresBytesThatAreTooEarlyOrInTheWrongFormat)
{
    const Bytes version{0x19};
    pins({0, 1, 0, 1, 3, 2});
    part.receive(Bytes{0x80, 1, 0, 0x19, 0xE8, 0x62}, {}, now);
    EXPECT_TRUE(part.advance({}, now + kMs).empty()) << "still starting";
    pass(250);
    EXPECT_TRUE(talk(version, {57600, true}).empty());
    EXPECT_TRUE(talk(version, {9600, false}).empty()) << "no parity";
    const Bytes answer = talk(version);
    ASSERT_EQ(answer.size(), 11u);
    EXPECT_EQ(Bytes(answer.begin(), answer.begin() + 9), (Bytes{0x00, 0x80, 5, 0, 0x3A, 0x00, 0x08, 0x35, 0x53}));
    EXPECT_EQ(part.gap_violations(), 0u);
}

TEST_F(MicrocontrollerTest, KeepsItsFlashLockedAndErasesItAfterAWrongPassword)
{
    enter();
    part.flash().poke(0x9000, 0x12);
    for (const Bytes &command : {Bytes{0x10, 0, 0x90, 0, 1}, Bytes{0x12, 0, 0x90, 0}, Bytes{0x16, 0, 0x90, 0, 1, 0},
                                 Bytes{0x18, 0, 0x90, 0, 1, 0}})
        EXPECT_EQ(status(command), 4);
    EXPECT_EQ(status({0x11, 0x00, 0x00}), 5);
    EXPECT_EQ(part.flash().read(0x9000, 1)[0], 0xFF) << "mass erase";
    unlock();
    EXPECT_EQ(status({0x10, 0, 0x90, 0, 0x5A}), 0);
}

TEST_F(MicrocontrollerTest, OnlyClearsBitsUntilASegmentIsErased)
{
    enter();
    unlock();
    EXPECT_EQ(status({0x10, 0, 0x90, 0, 0xF0}), 0);
    EXPECT_EQ(status({0x10, 0, 0x90, 0, 0x70}), 0) << "one more bit to clear";
    EXPECT_EQ(status({0x10, 0, 0x90, 0, 0x0F}), 1) << "bits do not come back";
    EXPECT_EQ(part.flash().read(0x9000, 1)[0], 0x00);
    part.flash().poke(0x9200, 0x00);
    EXPECT_EQ(status({0x12, 0xFF, 0x91, 0}), 0);
    EXPECT_EQ(part.flash().read(0x9000, 1)[0], 0xFF);
    EXPECT_EQ(part.flash().read(0x9200, 1)[0], 0x00) << "the next segment is unchanged";
    EXPECT_EQ(status({0x12, 0x00, 0x18, 0}), 2) << "information memory is locked";
    EXPECT_EQ(status({0x13}), 0);
    EXPECT_EQ(status({0x12, 0x00, 0x18, 0}), 0);
}

TEST_F(MicrocontrollerTest, RefusesMalformedPacketsAndUnknownCommands)
{
    enter();
    struct Case {
        Bytes bytes;
        uint8_t answer;
    };
    for (const Case &c : {Case{{0x13}, 0x51}, Case{{0x80, 1, 0, 0x19, 0xE8, 0x63}, 0x52}, Case{{0x80, 0, 0}, 0x53},
                          Case{{0x80, 0x05, 0x01}, 0x54}}) {
        pass(2);
        part.receive(c.bytes, {}, now);
        pass(10);
        EXPECT_EQ(part.advance({}, now), Bytes{c.answer});
    }
    EXPECT_EQ(talk({0x52, 0x07}), Bytes{0x56});
    EXPECT_EQ(status({0x99}), 7);
}

TEST_F(MicrocontrollerTest, ChangesItsRateAfterTheAcknowledgement)
{
    part.set_paced(true);
    enter();
    EXPECT_EQ(talk({0x52, 0x05}), Bytes{0x00}) << "at the old rate";
    EXPECT_EQ(part.rate(), 57600u);
    EXPECT_TRUE(talk({0x19}).empty());
    EXPECT_FALSE(talk({0x19}, {57600, true}).empty());
}

TEST_F(MicrocontrollerTest, TakesTheTimeOfTheLineWhenItIsPaced)
{
    part.set_paced(true);
    enter();
    const BoardTime byte = 11 * BoardTime{1'000'000'000} / 9600;
    part.receive(Bytes{0x80, 1, 0, 0x19, 0xE8, 0x62}, {}, now);
    EXPECT_TRUE(part.advance({}, now + 7 * byte - 1).empty());
    EXPECT_EQ(part.advance({}, now + 7 * byte).size(), 1u) << "six bytes in, the acknowledgement out";
    EXPECT_EQ(part.advance({}, now + 17 * byte).size(), 10u);
}

TEST_F(MicrocontrollerTest, DropsBytesWithinItsTurnaround)
{
    part.set_paced(true);
    enter();
    const BoardTime byte = 11 * BoardTime{1'000'000'000} / 9600;
    part.receive(Bytes{0x80, 1, 0, 0x19, 0xE8, 0x62}, {}, now);
    now += 17 * byte;
    part.advance({}, now);
    part.receive(Bytes{0x80}, {}, now + kMs / 2);
    part.advance({}, now + 2 * byte);
    EXPECT_EQ(part.gap_violations(), 1u);
}

TEST_F(MicrocontrollerTest, ItsApplicationGetsReadyAndRewritesTheLoader)
{
    const auto ready = [&] { return part.message(0x00, {}, now).value()[1] == 0x5A; };
    part.set_ready_time(3000 * kMs);
    pins({2, 0, 1, 3, 2});
    pass(10'000);
    EXPECT_FALSE(ready()) << "blank flash";
    part.flash().poke(0x9000, 1);
    pins({2, 0, 1, 3, 2});
    EXPECT_FALSE(ready());
    pass(3000);
    EXPECT_TRUE(ready());

    const Bytes arguments{0xEE, 0x77};
    part.message(0x4A, Bytes{0xEE, 0x78}, now);
    EXPECT_TRUE(ready()) << "the arguments are the key";
    part.message(0x4A, arguments, now);
    EXPECT_FALSE(ready());
    pass(2000);
    EXPECT_TRUE(ready());
    EXPECT_EQ(part.loader().version()[1], 0x09);
    enter();
    EXPECT_FALSE(part.message(0x00, {}, now).has_value()) << "the loader has no messages";
}
