#include "daemon/models/soc.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sstream>
#include <system_error>

#include "daemon/board.h"
#include "daemon/models/registers.h"
#include "dsp/cma_driver.h"
#include "logic/rp3_registers.h"

namespace vboard {

using namespace ddal::dsp;
using namespace ddal::logic;

namespace {

constexpr const char *kPhysicalMemory = "/dev/mem";
constexpr uint64_t kAllocationAlignment = 4096;
constexpr std::pair<uint32_t, const char *> kMemoryNames[] = {{1, "MSM"}, {2, "DDR"}};

struct MemoryRegion {
    uint64_t physical;
    uint64_t size;
};

// The region of a name in the driver's list.
std::optional<MemoryRegion> region_named(const std::string &list, const std::string &wanted)
{
    std::istringstream lines(list);
    std::string line;
    for (std::getline(lines, line); std::getline(lines, line);) {
        std::istringstream words(line);
        MemoryRegion region{};
        std::string name;
        if (words >> std::hex >> region.physical >> name >> region.size && name == wanted)
            return region;
    }
    return std::nullopt;
}

} // namespace

std::vector<IoctlForm> ContiguousMemory::ioctls(const Node &) const
{
    return {{0, kCmaInitialise, 0, 1}, {0, kCmaAllocate, sizeof(CmaAllocRequest), 0}, {0, kCmaEnablePmu, 0, 1}};
}

int ContiguousMemory::allocate(uint32_t mem_type, uint32_t size, uint32_t *physical)
{
    for (const auto &[type, name] : kMemoryNames) {
        if (type != mem_type)
            continue;
        const auto region = region_named(board().read_text(kCmaRegionList), name);
        const uint64_t wanted = (size + kAllocationAlignment - 1) / kAllocationAlignment * kAllocationAlignment;
        if (!region || wanted > region->size - used_[type])
            return -ENOMEM;
        *physical = static_cast<uint32_t>(region->physical + used_[type]);
        used_[type] += wanted;
        return 0;
    }
    return -EINVAL;
}

void ContiguousMemory::ioctl(const Node &, uint32_t request, Bytes argument, Answer answer)
{
    if (request == kCmaInitialise || request == kCmaEnablePmu) {
        ++(request == kCmaInitialise ? initialised_ : pmu_enabled_);
        answer.reply(0);
        return;
    }
    CmaAllocRequest record;
    if (request != kCmaAllocate || argument.size() != sizeof record) {
        answer.fail(ENOTTY);
        return;
    }
    std::memcpy(&record, argument.data(), sizeof record);
    answer.reply_with(allocate(record.mem_type, record.size, &record.physical), record);
}

std::string ContiguousMemory::show() const
{
    std::string text = "initialised " + std::to_string(initialised_) + " pmu " + std::to_string(pmu_enabled_);
    for (const auto &[type, name] : kMemoryNames)
        text += std::string(" ") + name + " " + std::to_string(used_.contains(type) ? used_.at(type) : 0);
    return text + "\n";
}

ControlTable ContiguousMemory::commands()
{
    using Row = ControlRow<ContiguousMemory>;
    return {
        Row{"show", "print the initialisations so far and the bytes in use of each memory", &ContiguousMemory::show},
        Row{"reset", "give all memory back", [](ContiguousMemory &memory) { memory.used_.clear(); }},
    };
}

void AntennaInterface::start()
{
    // Each register has a value of its own: bits of its address.
    for (const LinkRegister &reg : kAifLinks) {
        for (const auto &column : {reg.upper, reg.lower})
            for (size_t i = 0; i < std::size(reg.upper); ++i)
                set(column[i], column[i] & 0xFFFF);
    }
    for (const LabelledRegister &reg : kAifCommon)
        set(reg.address, reg.address & 0xFFFF);
    set_state(kAifAlarmGood, kRp1SfnStatusGood);
}

uint32_t AntennaInterface::get(uint32_t address) const
{
    const UniqueFd memory{::open(board().file(kPhysicalMemory).c_str(), O_RDONLY | O_CLOEXEC)};
    uint32_t value = 0;
    if (!memory || pread(memory.get(), &value, sizeof value, address) != sizeof value)
        throw std::system_error(errno, std::generic_category(), "the board's physical memory");
    return value;
}

void AntennaInterface::set(uint32_t address, uint32_t value) const
{
    const UniqueFd memory{::open(board().file(kPhysicalMemory).c_str(), O_RDWR | O_CLOEXEC)};
    if (!memory || pwrite(memory.get(), &value, sizeof value, address) != sizeof value)
        throw std::system_error(errno, std::generic_category(), "the board's physical memory");
}

void AntennaInterface::set_state(uint32_t alarm, uint32_t status) const
{
    set(kAifAlarm.address, alarm);
    if (auto *fpga = dynamic_cast<WordRegisters *>(board().model("fpga")))
        fpga->set(kRp1SfnStatus.address, status);
}

ControlTable AntennaInterface::commands()
{
    using Row = ControlRow<AntennaInterface>;
    return {
        Row{"get ADDRESS", "print a register",
            [](const AntennaInterface &interface, const Given &given) {
                char text[16];
                snprintf(text, sizeof text, "0x%08x\n", interface.get(given.number("ADDRESS")));
                return std::string(text);
            }},
        Row{"set ADDRESS VALUE", "change a register",
            [](const AntennaInterface &interface, const Given &given) {
                interface.set(given.number("ADDRESS"), given.number("VALUE"));
            }},
        Row{"healthy", "set all alarm and state bits of a working link",
            [](const AntennaInterface &interface) { interface.set_state(kAifAlarmGood, kRp1SfnStatusGood); }},
        Row{"broken", "clear one bit of the alarms and one of the state",
            [](const AntennaInterface &interface) {
                interface.set_state(kAifAlarmGood & (kAifAlarmGood - 1), kRp1SfnStatusGood & ~2u);
            }},
    };
}

} // namespace vboard
