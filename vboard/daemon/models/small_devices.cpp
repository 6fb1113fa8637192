#include "daemon/models/small_devices.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>

#include "daemon/board.h"
#include "logic/fpga_driver.h"
#include "platform/clock_devices.h"

namespace vboard {

using namespace ddal::logic;
using namespace ddal::platform;

void PowerMeter::start()
{
    running_ = true;
    schedule();
}

// One record a loop of the meter: a loop is 1 ms in the model, and the counter says how many make a record.
void PowerMeter::schedule()
{
    uint64_t loops = 0;
    try {
        loops = std::stoull(board().read_text(kPowerMeterLoopCount));
    } catch (const std::exception &) {
        loops = 0;
    }
    const auto period = std::chrono::milliseconds{std::clamp<uint64_t>(loops, 10, 1000)};
    board().after(period, [this] {
        if (running_) {
            PowerMeterRecord record{};
            ++count_;
            record.word[0] = (count_ & 0x1F) | (count_ & 0x3FF) << 8 | 0x155u << 20;
            for (uint32_t i = 1; i < 9; ++i)
                record.word[i] = 1000 * i + count_;
            channels_.send({reinterpret_cast<const uint8_t *>(&record), sizeof record});
        }
        schedule();
    });
}

int PowerMeter::open(const Node &, uint32_t, UniqueFd end)
{
    channels_.add(std::move(end));
    return 0;
}

ControlTable PowerMeter::commands()
{
    using Row = ControlRow<PowerMeter>;
    return {
        Row{"record WORD WORD WORD WORD WORD WORD WORD WORD WORD", "send a record of nine words",
            [](PowerMeter &meter, const Given &given) {
                PowerMeterRecord record{};
                const Words words = given.words("WORD");
                for (size_t i = 0; i < std::size(record.word); ++i)
                    record.word[i] = static_cast<uint32_t>(number_of(words[i]));
                meter.channels_.send({reinterpret_cast<const uint8_t *>(&record), sizeof record});
            }},
        Row{"short BYTES", "send a record of another length",
            [](PowerMeter &meter, const Given &given) {
                meter.channels_.send(Bytes(given.number<uint16_t>("BYTES")));
            }},
        Row{"stop|start", "send no records by itself, or go on with them",
            [](PowerMeter &meter, const Given &given) { meter.running_ = given.says("start"); }},
        Row{"hang-up", "close the channels of all programs", [](PowerMeter &meter) { meter.channels_.hang_up(); }},
    };
}

int JitterCleaner::write(const Node &, uint64_t, std::span<const uint8_t> in)
{
    if (in.size() != 3)
        return -EMSGSIZE;
    register_ = uint32_t{in[0]} << 16 | uint32_t{in[1]} << 8 | in[2];
    board().write_text(kJitterCleanerStatus, (register_ & 1) ? "1\n" : "0\n");
    return 3;
}

ControlTable JitterCleaner::commands()
{
    return {
        ControlRow<JitterCleaner>{"get", "print the register that was written last", [](const JitterCleaner &cleaner) {
                                      return std::to_string(cleaner.register_) + "\n";
                                  }}};
}

void Uptime::start()
{
    listener_ = UniqueFd{socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    const std::string path = board().private_path(std::string("names") + kUptimeSocketName);
    if (path.size() >= sizeof name.sun_path)
        throw std::runtime_error("the board directory's path is too long for a socket: " + path);
    std::memcpy(name.sun_path, path.c_str(), path.size() + 1);
    unlink(path.c_str());
    if (bind(listener_.get(), reinterpret_cast<sockaddr *>(&name), sizeof name) != 0 ||
        listen(listener_.get(), 16) != 0)
        throw std::system_error(errno, std::generic_category(), path);
    base_ns_ = board().monotonic_ns();
    board().loop().watch(listener_.get(), [this] { serve(); });
}

void Uptime::serve()
{
    UniqueFd client{accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC)};
    if (!client)
        return;
    const uint64_t ms = base_ms_ + static_cast<uint64_t>(board().monotonic_ns() - base_ns_) / 1'000'000;
    if (manner_ == kSilent) {
        kept_.push_back(std::move(client));
        return;
    }
    static_cast<void>(::send(client.get(), &ms, manner_ == kShort ? 5 : sizeof ms, MSG_NOSIGNAL));
}

ControlTable Uptime::commands()
{
    using Row = ControlRow<Uptime>;
    return {
        Row{"set MS", "set the uptime, in milliseconds",
            [](Uptime &uptime, const Given &given) {
                uptime.base_ms_ = given.number<uint64_t>("MS");
                uptime.base_ns_ = uptime.board().monotonic_ns();
            }},
        Row{"short", "answer with fewer bytes", [](Uptime &uptime) { uptime.manner_ = kShort; }},
        Row{"silent", "take connections and leave them without an answer",
            [](Uptime &uptime) { uptime.manner_ = kSilent; }},
        Row{"normal", "answer in full",
            [](Uptime &uptime) {
                uptime.manner_ = kNormal;
                uptime.kept_.clear();
            }},
    };
}

} // namespace vboard
