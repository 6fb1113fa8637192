#include "daemon/models/phy.h"

#include <cerrno>
#include <cstring>

#include "daemon/board.h"

namespace vboard {

namespace {

constexpr uint32_t kControl = 0;
constexpr uint32_t kStatus = 1;
constexpr uint32_t kIdentity1 = 2;
constexpr uint32_t kIdentity2 = 3;
constexpr uint32_t kAdvertisement = 4;
constexpr uint32_t kGigabitControl = 9;
constexpr uint32_t kGigabitStatus = 10;
constexpr uint32_t kMmdControl = 13;
constexpr uint32_t kMmdData = 14;
constexpr uint32_t kSpecificControl = 16;
constexpr uint32_t kSpecificStatus = 17;
constexpr uint32_t kPageSelect = 22;
constexpr uint32_t kRegisters = 32;

constexpr uint16_t kSelfClearing = 0x8200; // reset, restart of auto-negotiation
constexpr uint16_t kPowerDown = 0x0800;
constexpr uint16_t kAutoneg = 0x1000;
constexpr uint16_t kFullDuplex = 0x0100;
constexpr uint16_t kLinkStatus = 0x0004;
constexpr uint16_t kAutonegDone = 0x0020;
constexpr uint16_t kResolved = 0x0800;
constexpr uint16_t kResolvedFullDuplex = 0x2000;
constexpr uint16_t kManual = 0x1000;
constexpr uint16_t kMaster = 0x0800;
constexpr uint16_t kIsMaster = 0x4000;

struct Default {
    uint32_t page;
    uint32_t reg;
    uint16_t value;
};
constexpr Default kDefaults[] =
    {
        {0, kControl, 0x1140},         {0, kStatus, 0x7949}, {0, kAdvertisement, 0x01E1},
        {0, kGigabitControl, 0x0300},  {0, 6, 0x0006},       {0, kSpecificControl, 0x0060},
        {2, kSpecificControl, 0x2C41}, // recovered clock code 2 among other settings
};
constexpr uint32_t kAtherosClock = 7 << 16 | 0x8016;

std::string hex_word(uint32_t value)
{
    char text[16];
    snprintf(text, sizeof text, "0x%04x", value);
    return text;
}

std::string line_of(const char *what, uint32_t page, uint32_t reg, uint16_t value)
{
    return std::string(what) + " " + std::to_string(page) + "." + std::to_string(reg) + " = " + hex_word(value) + "\n";
}

} // namespace

Phy::Phy(Maker maker) : maker_(maker)
{
    for (const Default &each : kDefaults)
        registers_[{each.page, each.reg}] = each.value;
    registers_[{0, kIdentity1}] = maker == Maker::kMarvell ? 0x0141 : 0x004D;
    registers_[{0, kIdentity2}] = maker == Maker::kMarvell ? 0x0DD1 : 0xD074;
    extended_[kAtherosClock] = 0x0204;
}

uint16_t Phy::stored(uint32_t page, uint32_t reg) const
{
    const auto found = registers_.find({page, reg});
    return found == registers_.end() ? 0 : found->second;
}

bool Phy::has_link() const
{
    return partner_ && !held_ && !(stored(0, kControl) & kPowerDown);
}

uint32_t Phy::speed() const
{
    const uint16_t control = stored(0, kControl);
    if (control & kAutoneg)
        return 1000;
    return control & 0x0040 ? 1000 : control & 0x2000 ? 100 : 10;
}

bool Phy::is_full_duplex() const
{
    const uint16_t control = stored(0, kControl);
    return control & (kAutoneg | kFullDuplex);
}

uint16_t Phy::status() const
{
    const uint16_t fixed = stored(0, kStatus) & static_cast<uint16_t>(~(kLinkStatus | kAutonegDone));
    return static_cast<uint16_t>(has_link() ? fixed | kLinkStatus | kAutonegDone : fixed);
}

uint16_t Phy::specific_status() const
{
    if (!has_link())
        return 0;
    return static_cast<uint16_t>(kResolved | (is_full_duplex() ? kResolvedFullDuplex : 0));
}

uint16_t Phy::read(uint32_t page, uint32_t reg) const
{
    uint16_t value = stored(page, reg);
    if (page == 0 && reg == kStatus)
        value = status();
    else if (page == 0 && reg == kGigabitStatus)
        value = (stored(0, kGigabitControl) & (kManual | kMaster)) == (kManual | kMaster) ? kIsMaster : 0;
    else if (page == 0 && reg == kSpecificStatus && maker_ == Maker::kMarvell)
        value = specific_status();
    else if (page == 0 && reg == kMmdData && maker_ == Maker::kAtheros && stored(0, kMmdControl) & 0x4000) {
        const auto found = extended_.find((stored(0, kMmdControl) & 0x1Fu) << 16 | stored(0, kMmdData));
        value = found == extended_.end() ? 0 : found->second;
    }
    log_ += line_of("read", page, reg, value);
    return value;
}

void Phy::write(uint32_t page, uint32_t reg, uint16_t value)
{
    log_ += line_of("write", page, reg, value);
    if (page == 0 && (reg == kStatus || reg == kIdentity1 || reg == kIdentity2 || reg == kGigabitStatus))
        return; // read only
    if (page == 0 && reg == kMmdData && maker_ == Maker::kAtheros && stored(0, kMmdControl) & 0x4000) {
        extended_[(stored(0, kMmdControl) & 0x1Fu) << 16 | stored(0, kMmdData)] = value;
        return;
    }
    if (page == 0 && reg == kControl)
        value &= static_cast<uint16_t>(~kSelfClearing);
    registers_[{page, reg}] = value;
}

uint16_t Phy::read_selected(uint32_t reg) const
{
    return reg == kPageSelect ? page_ : read(page_, reg);
}

void Phy::write_selected(uint32_t reg, uint16_t value)
{
    if (reg == kPageSelect)
        page_ = value;
    else
        write(page_, reg, value);
}

void Phy::plug(bool partner)
{
    partner_ = partner;
}

std::string Phy::text() const
{
    std::string text;
    for (const auto &[place, value] : registers_)
        text += std::to_string(place.first) + "." + std::to_string(place.second) + " = " + std::to_string(value) + "\n";
    for (const auto &[place, value] : extended_)
        text += "extended " + std::to_string(place) + " = " + std::to_string(value) + "\n";
    return text;
}

std::string Phy::take_log()
{
    return std::exchange(log_, {});
}

// What a program would read, without a line in the log.
std::string Phy::peek(uint32_t page, uint32_t reg) const
{
    const std::string kept = log_;
    std::string text = hex_word(read(page, reg)) + "\n";
    log_ = kept;
    return text;
}

namespace {

// The driver moves a register, or one half of it for a client that asks for no more.
bool is_within_register(uint64_t offset, size_t length)
{
    return length > 0 && offset % 2 + length <= sizeof(uint16_t) && offset % 0x10000 / 2 < kRegisters;
}

constexpr const char *kBusFolder = "/sys/bus/mdio_bus/devices/";
constexpr const char *kResetFolder = "/sys/class/cpld-usr/cpld-usr/";

struct ResetLine {
    const char *name;
    const char *bus_ids[2];
};
constexpr ResetLine kResetLines[] = {
    {"bh_phy_reset", {"0.0:00", "2090300.mdio:00"}},
    {"bh_phy2_reset", {"0.0:01", "2090300.mdio:01"}},
    {"bh_phy3_reset", {"0.1:01", ""}},
};

std::string bus_id_of(const Node &node)
{
    const std::string path = node.path;
    if (path.rfind(kBusFolder, 0) != 0)
        return {};
    const size_t begin = strlen(kBusFolder);
    return path.substr(begin, path.find('/', begin) - begin);
}

} // namespace

void PhyNodes::start()
{
    board().each_node_of(*this, [this](const Node &node) {
        const std::string id = bus_id_of(node);
        if (!id.empty())
            phys_.emplace(id, Phy{});
    });
}

int PhyNodes::read(const Node &node, uint64_t offset, std::span<uint8_t> out)
{
    const auto found = phys_.find(bus_id_of(node));
    if (found == phys_.end())
        return Model::read(node, offset, out);
    if (!is_within_register(offset, out.size()))
        return -EINVAL;
    if (found->second.is_held())
        return -EIO; // nobody answers on the bus
    const uint16_t value =
        found->second.read(static_cast<uint32_t>(offset >> 16), static_cast<uint32_t>(offset % 0x10000 / 2));
    memcpy(out.data(), reinterpret_cast<const uint8_t *>(&value) + offset % 2, out.size());
    return static_cast<int>(out.size());
}

int PhyNodes::write(const Node &node, uint64_t offset, std::span<const uint8_t> in)
{
    const auto found = phys_.find(bus_id_of(node));
    if (found == phys_.end()) { // a reset line
        if (in.empty())
            return -EINVAL;
        drive_reset_line(node, in[0] != '0');
        return static_cast<int>(in.size());
    }
    if (!is_within_register(offset, in.size()))
        return -EINVAL;
    if (found->second.is_held())
        return -EIO;
    const auto page = static_cast<uint32_t>(offset >> 16);
    const auto reg = static_cast<uint32_t>(offset % 0x10000 / 2);
    uint16_t value = in.size() < sizeof value ? found->second.read(page, reg) : uint16_t{0};
    memcpy(reinterpret_cast<uint8_t *>(&value) + offset % 2, in.data(), in.size());
    found->second.write(page, reg, value);
    return static_cast<int>(in.size());
}

void PhyNodes::drive_reset_line(const Node &node, bool held)
{
    board().write_text(node.path, held ? "1\n" : "0\n");
    for (const ResetLine &line : kResetLines)
        for (const char *id : line.bus_ids)
            if (std::string(node.path) == std::string(kResetFolder) + line.name && phys_.contains(id))
                phys_.at(id).hold_in_reset(held);
}

void PhyNodes::plug(uint32_t dev_id, bool partner)
{
    constexpr uint32_t kLineOfDevId[] = {0, 1, UINT32_MAX, 2};
    if (dev_id >= std::size(kLineOfDevId) || kLineOfDevId[dev_id] >= std::size(kResetLines))
        return;
    for (const char *id : kResetLines[kLineOfDevId[dev_id]].bus_ids)
        if (phys_.contains(id))
            phys_.at(id).plug(partner);
}

Phy &PhyNodes::phy_in(const Given &given)
{
    const auto found = phys_.find(given.text("BUS-ID"));
    if (found == phys_.end())
        throw ControlError("no PHY \"" + given.text("BUS-ID") + "\"; \"phy list\" names them");
    return found->second;
}

std::string PhyNodes::list() const
{
    std::string list;
    for (const auto &[name, unused] : phys_)
        list += name + "\n";
    return list;
}

ControlTable PhyNodes::commands()
{
    using Row = ControlRow<PhyNodes>;
    ControlTable table{
        Row{"list", "print the bus ids", &PhyNodes::list},
        Row{"BUS-ID maker marvell|atheros", "put a new PHY of this maker there",
            [](PhyNodes &nodes, const Given &given) {
                nodes.phy_in(given) = Phy(given.says("marvell") ? Phy::Maker::kMarvell : Phy::Maker::kAtheros);
            }},
    };
    const ControlTable of_each = Phy::commands<PhyNodes>("BUS-ID", std::mem_fn(&PhyNodes::phy_in));
    table.insert(table.end(), of_each.begin(), of_each.end());
    return table;
}

} // namespace vboard
