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

#include "daemon/board.h"
#include "daemon/models/registers.h"
#include "rf_card/rf_card_driver.h"

namespace vboard {

using namespace ddal::rf_card;

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
    store(kVersionAddress, kFirstVersion);
    controller_.set_power(true, board().monotonic_ns());
}

void RfCard::open_line()
{
    line_ = UniqueFd{posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)};
    char slave[64];
    if (!line_ || grantpt(line_.get()) != 0 || unlockpt(line_.get()) != 0 ||
        ptsname_r(line_.get(), slave, sizeof slave) != 0)
        fail("cannot make a pty for the RF card");
    holder_ = UniqueFd{::open(slave, O_RDWR | O_NOCTTY | O_CLOEXEC)};
    struct statx info;
    termios settings;
    if (!holder_ || statx(holder_.get(), "", AT_EMPTY_PATH, STATX_TYPE, &info) != 0 ||
        tcgetattr(holder_.get(), &settings) != 0)
        fail("cannot open the RF card's pty");
    cfmakeraw(&settings);
    tcsetattr(holder_.get(), TCSANOW, &settings);
    line_device_ = info.stx_rdev_major << 20 | info.stx_rdev_minor;
    Terminal &line = board().page().terminals[0]; // no program has taken one yet
    static_assert(std::string_view(kUartNode).size() < sizeof line.path);
    std::strcpy(line.path, kUartNode);
    line.device.store(line_device_, std::memory_order_release);

    const auto link = board().file(kUartNode);
    std::filesystem::create_directories(link.parent_path());
    std::filesystem::remove(link);
    std::filesystem::create_symlink(slave, link);

    timer_ = UniqueFd{timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)};
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

// "mode loader rate 57600 packets 12 gap-violations 0 locked no ready no loader 00083553 password-length 10"
std::string RfCard::show_state()
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

void RfCard::store(uint32_t address, std::span<const uint8_t> bytes)
{
    for (const uint8_t byte : bytes)
        controller_.flash().poke(address++, byte);
}

void RfCard::move_version(uint32_t address)
{
    const auto old = controller_.flash().read(controller_.version_address(), std::size(kFirstVersion));
    const Bytes version(old.begin(), old.end());
    controller_.set_version_address(address);
    store(address, version); // the application that runs has one there
}

void RfCard::arm_fault(const Given &given)
{
    const AnswerPart part = given.says("ack") ? AnswerPart::kAcknowledgement : AnswerPart::kResponse;
    for (const FaultName &row : kFaultNames)
        if (given.says(row.name))
            controller_.arm({row.kind, part, given.number("PACKET"), given.number_or("MS", 0u) * kMillisecond});
}

ControlTable RfCard::commands()
{
    using Row = ControlRow<RfCard>;
    std::string faults;
    for (const FaultName &row : kFaultNames)
        faults += std::string(faults.empty() ? "" : "|") + row.name;
    return {
        Row{"state", "print mode, line and counts of the microcontroller", &RfCard::show_state},
        Row{"commands", "print the command byte of each packet since the faults were cleared; 00 is a refused one",
            [](RfCard &card) { return digits_of(card.controller_.commands()) + "\n"; }},
        Row{"pace on|off", "let bytes take the time of the line, or none",
            [](RfCard &card, const Given &given) { card.controller_.set_paced(given.says("on")); }},
        Row{"ready-time MS", "set the time that the application takes to start, in milliseconds",
            [](RfCard &card, const Given &given) {
                card.controller_.set_ready_time(given.number("MS") * kMillisecond);
            }},
        Row{"version HEX", "change the version of the application: 8 bytes",
            [](RfCard &card, const Given &given) {
                card.store(card.controller_.version_address(), given.bytes("HEX"));
            }},
        Row{"version-address ADDRESS", "move the version of the application",
            [](RfCard &card, const Given &given) { card.move_version(given.number("ADDRESS")); }},
        Row{"loader-version HEX", "change the version of the boot loader: 4 bytes",
            [](RfCard &card, const Given &given) {
                std::array<uint8_t, 4> version{};
                const Bytes bytes = given.bytes("HEX");
                std::copy_n(bytes.begin(), std::min(bytes.size(), version.size()), version.begin());
                card.controller_.loader().set_version(version);
            }},
        Row{"password BYTE", "change the password to one of this byte",
            [](RfCard &card, const Given &given) {
                card.controller_.loader().set_password_fill(given.number<uint8_t>("BYTE"));
            }},
        Row{"poke ADDRESS HEX", "change bytes of the memory",
            [](RfCard &card, const Given &given) { card.store(given.number("ADDRESS"), given.bytes("HEX")); }},
        Row{"peek ADDRESS LENGTH", "print bytes of the memory",
            [](RfCard &card, const Given &given) {
                const auto address = given.number("ADDRESS");
                const auto length = given.number("LENGTH");
                if (!card.controller_.flash().readable(address, length))
                    throw ControlError("there is no memory at " + given.text("ADDRESS"));
                return digits_of(card.controller_.flash().read(address, length)) + "\n";
            }},
        Row{"fault clear", "disarm the faults of the line", [](RfCard &card) { card.controller_.disarm(); }},
        Row{"fault " + faults + " ack|response PACKET [MS]",
            "spoil the answer to a packet, counted from 1; a late one comes so many milliseconds later",
            &RfCard::arm_fault},
    };
}

} // namespace vboard
