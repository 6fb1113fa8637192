#include "daemon/models/rf_card.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <system_error>
#include <termios.h>
#include <unistd.h>

#include "bsl/rf_card_driver.h"
#include "daemon/board.h"
#include "daemon/models/registers.h"

namespace vboard {

using namespace ddal::bsl;

namespace {

constexpr BoardTime kMillisecond = 1'000'000;
constexpr BoardTime kSecond = 1'000'000'000;
constexpr uint32_t kVersionAddress = 0x9000;
constexpr uint8_t kFirstVersion[] = {0x00, 0x00, 0x00, 0x00, 0x01, 0x04, 0x02, 0x07};

struct Speed {
    speed_t code;
    uint32_t rate;
};
constexpr Speed kSpeeds[] = {{B1200, 1200},   {B2400, 2400},   {B4800, 4800},   {B9600, 9600},
                             {B19200, 19200}, {B38400, 38400}, {B57600, 57600}, {B115200, 115200}};

struct FaultName {
    const char *name;
    LinkFault kind;
};
constexpr FaultName kFaultNames[] = {
    {"lost", LinkFault::kLost},
    {"late", LinkFault::kLate},
    {"garbled", LinkFault::kGarbled},
    {"swapped-crc", LinkFault::kSwappedCrc},
    {"wrong-header", LinkFault::kWrongHeader},
    {"huge-length", LinkFault::kHugeLength},
    {"noise", LinkFault::kNoise},
    {"silence", LinkFault::kSilence},
    {"reset", LinkFault::kReset},
};

constexpr const char *kModeNames[] = {"off", "reset", "starting", "loader", "application"};

[[noreturn]] void fail(const char *what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

Bytes bytes_of(const std::string &digits)
{
    if (digits.size() % 2 != 0)
        throw ControlError("not pairs of hexadecimal digits: " + digits);
    Bytes bytes;
    for (size_t i = 0; i < digits.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(number_of("0x" + digits.substr(i, 2))));
    return bytes;
}

std::string digits_of(std::span<const uint8_t> bytes)
{
    std::string text;
    for (uint8_t byte : bytes) {
        char digits[4];
        snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

} // namespace

void RfCard::start()
{
    open_line();
    connect_fpga();
    for (size_t i = 0; i < std::size(kFirstVersion); ++i)
        controller_.flash().poke(kVersionAddress + static_cast<uint32_t>(i), kFirstVersion[i]);
    controller_.set_power(true, board().monotonic_ns());
}

void RfCard::open_line()
{
    line_ = Descriptor{posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)};
    char slave[64];
    if (!line_ || grantpt(line_.get()) != 0 || unlockpt(line_.get()) != 0 ||
        ptsname_r(line_.get(), slave, sizeof slave) != 0)
        fail("cannot make a pty for the RF card");
    holder_ = Descriptor{::open(slave, O_RDWR | O_NOCTTY | O_CLOEXEC)};
    struct statx info;
    termios settings;
    if (!holder_ || statx(holder_.get(), "", AT_EMPTY_PATH, STATX_TYPE, &info) != 0 ||
        tcgetattr(holder_.get(), &settings) != 0)
        fail("cannot open the RF card's pty");
    cfmakeraw(&settings);
    tcsetattr(holder_.get(), TCSANOW, &settings);
    line_device_ = info.stx_rdev_major << 20 | info.stx_rdev_minor;

    const auto link = board().file(kUartNode);
    std::filesystem::create_directories(link.parent_path());
    std::filesystem::remove(link);
    std::filesystem::create_symlink(slave, link);

    timer_ = Descriptor{timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)};
    if (!timer_)
        fail("cannot make a timer for the RF card");
    board().loop().watch(line_.get(), [this] { read_line(); });
    board().loop().watch(timer_.get(), [this] {
        uint64_t count;
        if (::read(timer_.get(), &count, sizeof count) > 0)
            pump();
    });
}

void RfCard::connect_fpga()
{
    auto *fpga = dynamic_cast<WordRegisters *>(board().model("fpga"));
    if (!fpga)
        throw std::runtime_error("the RF card needs the model \"fpga\"");
    fpga->set(kPinRegister, kRstPin);
    fpga->set(kRfPowerRegister, kRfPowerOn);
    fpga->on_write(kPinRegister, [this](uint32_t value) {
        pump(); // what was under way before the pins moved
        controller_.set_pins((value & kTestPin) != 0, (value & kRstPin) != 0, board().monotonic_ns());
        pump();
    });
    fpga->on_write(kRfPowerRegister, [this](uint32_t value) {
        controller_.set_power((value & kRfPowerOn) != 0, board().monotonic_ns());
        pump();
    });
}

// What the program at the other end has asked for. A program without the preload library cannot say, and is believed.
LineFormat RfCard::line_format() const
{
    for (const Terminal &terminal : board().page().terminals) {
        const uint32_t flags = terminal.cflag.load();
        if (terminal.device.load() != line_device_ || flags == 0)
            continue;
        LineFormat format{0, (flags & (CSIZE | PARENB | PARODD | CSTOPB)) == (CS8 | PARENB)};
        for (const Speed &speed : kSpeeds)
            if (speed.code == terminal.output_speed.load() && speed.code == terminal.input_speed.load())
                format.rate = speed.rate;
        return format;
    }
    return {controller_.rate(), true};
}

void RfCard::read_line()
{
    std::array<uint8_t, 4096> block;
    ssize_t n;
    while ((n = ::read(line_.get(), block.data(), block.size())) > 0)
        controller_.receive({block.data(), static_cast<size_t>(n)}, line_format(), board().monotonic_ns());
    pump();
}

// Lets the microcontroller do what is due, and wakes up again for what comes next.
void RfCard::pump()
{
    const Bytes out = controller_.advance(line_format(), board().monotonic_ns());
    if (!out.empty() && ::write(line_.get(), out.data(), out.size()) < 0)
        return; // the program does not read; a real line would lose the bytes as well
    itimerspec when{};
    if (const auto next = controller_.next_event()) {
        const auto at = board().host_time(*next).time_since_epoch();
        const int64_t ns = std::max<int64_t>(1, std::chrono::duration_cast<std::chrono::nanoseconds>(at).count());
        when.it_value.tv_sec = static_cast<time_t>(ns / kSecond);
        when.it_value.tv_nsec = static_cast<long>(ns % kSecond);
    }
    timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &when, nullptr);
}

std::vector<IoctlForm> RfCard::ioctls(const Node &) const
{
    return {{0, kRfupMessage, sizeof(RfupRequest), 0}};
}

void RfCard::ioctl(const Node &, uint32_t request, Bytes argument, Answer answer)
{
    RfupRequest record;
    if (request != kRfupMessage || argument.size() != sizeof record) {
        answer.fail(ENOTTY);
        return;
    }
    std::memcpy(&record, argument.data(), sizeof record);
    const auto reply = controller_.message(record.opcode, {record.tx, record.tx_len}, board().monotonic_ns());
    if (!reply) {
        answer.fail(EIO);
        return;
    }
    std::copy_n(reply->begin(), std::min<size_t>(reply->size(), record.rx_len), record.rx);
    answer.reply_with(0, record);
}

const RfCard::Verb RfCard::kVerbs[] = {
    {"state", &RfCard::show_state},
    {"commands", &RfCard::show_commands},
    {"pace", &RfCard::set_pace},
    {"ready-time", &RfCard::set_ready_time},
    {"version", &RfCard::set_version},
    {"version-address", &RfCard::set_version_address},
    {"loader-version", &RfCard::set_loader_version},
    {"password", &RfCard::set_password},
    {"poke", &RfCard::poke},
    {"peek", &RfCard::peek},
    {"fault", &RfCard::arm_fault},
};

std::string RfCard::control(const Words &words)
{
    const std::string &name = word_at(words, 0, "state, poke, fault or another verb of the RF card");
    for (const Verb &verb : kVerbs) {
        if (name == verb.name)
            return (this->*verb.run)(words);
    }
    std::string known;
    for (const Verb &verb : kVerbs)
        known += std::string(known.empty() ? "" : ", ") + verb.name;
    throw ControlError("the RF card takes " + known);
}

// "mode loader rate 57600 packets 12 gap-violations 0 locked no ready no loader 00083553 password-length 10"
std::string RfCard::show_state(const Words &)
{
    std::ostringstream text;
    text << "mode " << kModeNames[static_cast<int>(controller_.mode())] << " rate " << controller_.rate() << " packets "
         << controller_.packets() << " gap-violations " << controller_.gap_violations() << " locked "
         << (controller_.loader().is_locked() ? "yes" : "no") << " ready "
         << (controller_.application_ready(board().monotonic_ns()) ? "yes" : "no") << " loader "
         << digits_of(controller_.loader().version()) << " password-length " << controller_.loader().password_length()
         << "\n";
    return text.str();
}

// The command byte of each packet since the faults were cleared, 00 for a refused one.
std::string RfCard::show_commands(const Words &)
{
    return digits_of(controller_.commands()) + "\n";
}

std::string RfCard::set_pace(const Words &words)
{
    controller_.set_paced(word_at(words, 1, "on or off") == "on");
    return {};
}

std::string RfCard::set_ready_time(const Words &words)
{
    controller_.set_ready_time(static_cast<BoardTime>(number_of(word_at(words, 1, "milliseconds"))) * kMillisecond);
    return {};
}

std::string RfCard::set_version(const Words &words)
{
    const Bytes version = bytes_of(word_at(words, 1, "16 hexadecimal digits"));
    for (size_t i = 0; i < version.size(); ++i)
        controller_.flash().poke(controller_.version_address() + static_cast<uint32_t>(i), version[i]);
    return {};
}

std::string RfCard::set_version_address(const Words &words)
{
    const auto old = controller_.flash().read(controller_.version_address(), std::size(kFirstVersion));
    const Words version{"version", digits_of(old)};
    controller_.set_version_address(static_cast<uint32_t>(number_of(word_at(words, 1, "an address"))));
    return set_version(version); // the application that runs has one there
}

std::string RfCard::set_loader_version(const Words &words)
{
    const Bytes given = bytes_of(word_at(words, 1, "8 hexadecimal digits"));
    std::array<uint8_t, 4> version{};
    std::copy_n(given.begin(), std::min(given.size(), version.size()), version.begin());
    controller_.loader().set_version(version);
    return {};
}

std::string RfCard::set_password(const Words &words)
{
    controller_.loader().set_password_fill(static_cast<uint8_t>(number_of(word_at(words, 1, "the fill byte"))));
    return {};
}

std::string RfCard::poke(const Words &words)
{
    auto address = static_cast<uint32_t>(number_of(word_at(words, 1, "an address")));
    for (uint8_t byte : bytes_of(word_at(words, 2, "hexadecimal digits")))
        controller_.flash().poke(address++, byte);
    return {};
}

std::string RfCard::peek(const Words &words)
{
    const auto address = static_cast<uint32_t>(number_of(word_at(words, 1, "an address")));
    const auto length = static_cast<uint32_t>(number_of(word_at(words, 2, "a length")));
    if (!controller_.flash().readable(address, length))
        throw ControlError("there is no memory at " + words[1]);
    return digits_of(controller_.flash().read(address, length)) + "\n";
}

// fault <kind> ack|response <packet> [<milliseconds>], or fault clear
std::string RfCard::arm_fault(const Words &words)
{
    const std::string &kind = word_at(words, 1, "a kind of fault, or clear");
    if (kind == "clear") {
        controller_.disarm();
        return {};
    }
    for (const FaultName &row : kFaultNames) {
        if (kind != row.name)
            continue;
        const AnswerPart part =
            word_at(words, 2, "ack or response") == "ack" ? AnswerPart::kAcknowledgement : AnswerPart::kResponse;
        const auto packet = static_cast<uint32_t>(number_of(word_at(words, 3, "a packet's number, from 1")));
        const BoardTime delay = words.size() > 4 ? static_cast<BoardTime>(number_of(words[4])) * kMillisecond : 0;
        controller_.arm({row.kind, part, packet, delay});
        return {};
    }
    throw ControlError("no such fault of the RF card's line: " + kind);
}

} // namespace vboard
