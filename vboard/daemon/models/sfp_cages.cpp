#include "daemon/models/sfp_cages.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "daemon/board.h"
#include "sfp/table.h"

namespace vboard {

using namespace ddal::sfp;

namespace {

constexpr const char *kLineOfPresence = kSfpStatusLines[DDAL_SFP_STATUS_PRESENCE];

int copy_from(std::string_view text, uint64_t offset, std::span<uint8_t> out)
{
    const size_t from = std::min<size_t>(offset, text.size());
    const size_t n = std::min(out.size(), text.size() - from);
    std::copy_n(text.begin() + static_cast<long>(from), n, out.begin());
    return static_cast<int>(n);
}

const char *bit(bool value)
{
    return value ? "1\n" : "0\n";
}

SfpModule::Description description_of(const Words &words)
{
    SfpModule::Description description;
    for (const std::string &word : words) {
        const size_t equals = word.find('=');
        if (equals == std::string::npos)
            throw ControlError("\"" + word + "\" is not of the form name=value");
        description[word.substr(0, equals)] = word.substr(equals + 1);
    }
    return description;
}

size_t line_in(const Given &given)
{
    return static_cast<size_t>(std::find_if(std::begin(kSfpStatusLines), std::end(kSfpStatusLines),
                                            [&](const char *line) { return given.says(line); }) -
                               kSfpStatusLines);
}

} // namespace

// Which cage a file belongs to depends on the wiring, and the wiring shows in what files there are.
std::optional<SfpCages::Place> SfpCages::place_of(const std::string &path) const
{
    const bool on_i2c = board().node(kSfpCagesOnI2c[1].memory[0]) != nullptr;
    for (size_t cage = 0; cage < kSfpCageCount; ++cage) {
        const SfpCage &row = on_i2c ? kSfpCagesOnI2c[cage] : kSfpCagesOnCpld[cage];
        for (size_t memory = 0; memory < 2; ++memory)
            if (path == row.memory[memory])
                return Place{cage, What::kMemory, memory};
        const std::string lines = std::string(row.lines) + "/";
        if (path == lines + kSfpTxDisable)
            return Place{cage, What::kTxDisable, 0};
        if (path == lines + kSfpRateSelect)
            return Place{cage, What::kRateSelect, 0};
        for (size_t line = 0; line < kLines; ++line)
            if (path == lines + kSfpStatusLines[line])
                return Place{cage, What::kLine, line};
    }
    return {};
}

void SfpCages::start()
{
    board().each_node_of(*this, [this](const Node &node) {
        const auto place = place_of(node.path);
        if (!place)
            throw std::runtime_error(std::string("no file of an SFP cage: ") + node.path);
        places_.emplace(node.id, *place);
    });
    for (Cage &cage : cages_)
        announce(cage);
}

SfpModule::Surroundings SfpCages::surroundings(const Cage &cage) const
{
    const double seconds = static_cast<double>(board().monotonic_ns() - cage.plugged_ns) / 1e9;
    return {seconds, cage.tx_disable, cage.rate_select};
}

// The lines of an empty cage are pulled up.
std::string SfpCages::line_text(const Cage &cage, size_t line) const
{
    if (cage.line_text[line])
        return *cage.line_text[line];
    const bool is_presence = kSfpStatusLines[line] == kLineOfPresence;
    if (!cage.module || is_presence)
        return bit(is_presence == cage.module.has_value());
    return bit(line == DDAL_SFP_STATUS_RX_LOS ? cage.module->loses_signal() : cage.module->has_fault());
}

void SfpCages::announce(Cage &cage)
{
    for (size_t line = 0; line < kLines; ++line) {
        const std::string now = line_text(cage, line);
        if (now != std::exchange(cage.shown[line], now))
            cage.readers[line].signal();
    }
}

std::string SfpCages::text(const Node &node)
{
    const Place &place = place_of(node);
    return place.what == What::kLine ? cages_[place.cage].shown[place.index] : "";
}

int SfpCages::open(const Node &node, uint32_t, UniqueFd end)
{
    const Place &place = place_of(node);
    cages_[place.cage].readers[place.index].add(std::move(end));
    return 0;
}

int SfpCages::read(const Node &node, uint64_t offset, std::span<uint8_t> out)
{
    const Place &place = place_of(node);
    const Cage &cage = cages_[place.cage];
    if (place.what == What::kTxDisable)
        return copy_from(bit(cage.tx_disable), offset, out);
    if (place.what == What::kRateSelect)
        return copy_from(bit(cage.rate_select), offset, out);
    if (!cage.module || !cage.module->has(static_cast<unsigned>(place.index)))
        return -ENXIO; // nobody acknowledges on the bus
    const SfpModule::Memory bytes = cage.module->bytes(static_cast<unsigned>(place.index), surroundings(cage));
    return copy_from({reinterpret_cast<const char *>(bytes.data()), bytes.size()}, offset, out);
}

int SfpCages::write(const Node &node, uint64_t offset, std::span<const uint8_t> in)
{
    const Place &place = place_of(node);
    Cage &cage = cages_[place.cage];
    if (place.what == What::kMemory) {
        if (!cage.module || place.index == 0 || !cage.module->has(1))
            return -ENXIO;
        if (offset >= std::tuple_size_v<SfpModule::Memory>)
            return -EFBIG; // as the kernel refuses it for every EEPROM file
        const size_t n = std::min<size_t>(in.size(), std::tuple_size_v<SfpModule::Memory> - offset);
        cage.module->write_diagnostics(offset, in.first(n));
        return static_cast<int>(n);
    }
    if (place.what == What::kLine)
        return -EACCES;
    if (in.empty() || (in[0] != '0' && in[0] != '1'))
        return -EINVAL;
    (place.what == What::kTxDisable ? cage.tx_disable : cage.rate_select) = in[0] == '1';
    return static_cast<int>(in.size());
}

void SfpCages::plug(Cage &cage, SfpModule module)
{
    cage.module = module;
    cage.plugged_ns = board().monotonic_ns();
}

std::string SfpCages::show() const
{
    std::string list;
    for (size_t i = 0; i < kSfpCageCount; ++i) {
        const Cage &cage = cages_[i];
        list += std::to_string(i + 1);
        if (cage.module) {
            const SfpModule::Memory id = cage.module->bytes(0, surroundings(cage));
            list += " " + std::string(id.begin() + 20, id.begin() + 36) + std::string(id.begin() + 40, id.begin() + 56);
        } else {
            list += " empty";
        }
        list += std::string(" tx_dis=") + bit(cage.tx_disable)[0] + " rate_select=" + bit(cage.rate_select)[0] + "\n";
    }
    return list;
}

// A change of the cage that the words name, which its lines then show.
template <typename Change>
auto SfpCages::at_cage(Change change)
{
    return [change](SfpCages &cages, const Given &given) {
        Cage &cage = cages.cages_[given.says("2")];
        change(cages, cage, given);
        cages.announce(cage);
    };
}

template <typename Change>
auto SfpCages::at_module(Change change)
{
    return at_cage([change](SfpCages &, Cage &cage, const Given &given) {
        if (!cage.module)
            throw ControlError("the cage is empty");
        change(*cage.module, given);
    });
}

ControlTable SfpCages::commands()
{
    using Row = ControlRow<SfpCages>;
    return {
        Row{"show", "print module and control lines of each cage", &SfpCages::show},
        Row{"plug 1|2 dump FOLDER", "plug a module with the memories in a folder of the machine",
            at_cage([](SfpCages &cages, Cage &cage, const Given &given) {
                cages.plug(cage, SfpModule::from_dump(given.text("FOLDER")));
            })},
        Row{"plug 1|2 describe [KEY=VALUE...]",
            "plug a module with these properties: vendor part revision serial date connector compliance rate "
            "rate-above "
            "rate-below wavelength calibration temperature voltage bias tx rx",
            at_cage([](SfpCages &cages, Cage &cage, const Given &given) {
                cages.plug(cage, SfpModule::from_description(description_of(given.words("KEY=VALUE"))));
            })},
        Row{"pull 1|2", "take the module out",
            at_cage([](SfpCages &, Cage &cage, const Given &) { cage.module.reset(); })},
        Row{"set 1|2 temperature|voltage|bias|tx|rx AMOUNT", "let the module measure this: degrees, V, mA or mW",
            at_module([](SfpModule &module, const Given &given) {
                for (const char *quantity : {"temperature", "voltage", "bias", "tx", "rx"})
                    if (given.says(quantity))
                        module.measure(quantity, given.decimal("AMOUNT"));
            })},
        Row{"drift 1|2 DEGREES SECONDS", "let the temperature swing so far, in a period of so many seconds",
            at_module([](SfpModule &module, const Given &given) {
                module.drift(given.decimal("DEGREES"), given.decimal("SECONDS"));
            })},
        Row{"light 1|2 on|off", "change whether light comes in",
            at_module([](SfpModule &module, const Given &given) { module.set_light(given.says("on")); })},
        Row{"fault 1|2 on|off", "change whether the module reports a fault",
            at_module([](SfpModule &module, const Given &given) { module.set_fault(given.says("on")); })},
        Row{"poke 1|2 id|diag OFFSET HEX", "change bytes of a memory",
            at_module([](SfpModule &module, const Given &given) {
                module.poke(given.says("diag"), given.number<uint8_t>("OFFSET"), given.bytes("HEX"));
            })},
        Row{"line 1|2 presence|rx_los|tx_fault auto", "let a status line follow the module",
            at_cage([](SfpCages &, Cage &cage, const Given &given) { cage.line_text[line_in(given)].reset(); })},
        Row{"line 1|2 presence|rx_los|tx_fault TEXT", "let a status line read as this text",
            at_cage([](SfpCages &, Cage &cage, const Given &given) {
                cage.line_text[line_in(given)] = given.text("TEXT");
            })},
    };
}

} // namespace vboard
