#include "daemon/models/sfp_cages.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "daemon/board.h"
#include "platform/sfp_table.h"

namespace vboard {

using namespace ddal::platform;

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

bool on_or_off(const std::string &word)
{
    if (word != "on" && word != "off")
        throw ControlError("\"" + word + "\" is neither on nor off");
    return word == "on";
}

double decimal_at(const Words &words, size_t index, const char *what)
{
    const std::string &word = word_at(words, index, what);
    try {
        return std::stod(word);
    } catch (const std::exception &) {
        throw ControlError("\"" + word + "\" is not a number");
    }
}

Bytes bytes_of(const std::string &digits)
{
    if (digits.empty() || digits.size() % 2 || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        throw ControlError("\"" + digits + "\" is not pairs of hexadecimal digits");
    Bytes bytes;
    for (size_t i = 0; i < digits.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return bytes;
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

int SfpCages::open(const Node &node, uint32_t, Descriptor end)
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
        cage.module->write_diagnostics(offset, in);
        return static_cast<int>(in.size());
    }
    if (place.what == What::kLine)
        return -EACCES;
    if (in.empty() || (in[0] != '0' && in[0] != '1'))
        return -EINVAL;
    (place.what == What::kTxDisable ? cage.tx_disable : cage.rate_select) = in[0] == '1';
    return static_cast<int>(in.size());
}

SfpModule &SfpCages::module_in(Cage &cage)
{
    if (!cage.module)
        throw ControlError("the cage is empty");
    return *cage.module;
}

void SfpCages::plug(Cage &cage, const Words &words)
{
    const std::string &source = word_at(words, 2, "dump or describe");
    if (source == "dump") {
        cage.module = SfpModule::from_dump(word_at(words, 3, "a folder"));
    } else if (source == "describe") {
        SfpModule::Description description;
        for (size_t i = 3; i < words.size(); ++i) {
            const size_t equals = words[i].find('=');
            if (equals == std::string::npos)
                throw ControlError("\"" + words[i] + "\" is not word=value");
            description[words[i].substr(0, equals)] = words[i].substr(equals + 1);
        }
        cage.module = SfpModule::from_description(description);
    } else {
        throw ControlError("a module comes from a dump or is described");
    }
    cage.plugged_ns = board().monotonic_ns();
}

void SfpCages::change(Cage &cage, const Words &words)
{
    const std::string &verb = words[0];
    if (verb == "set") {
        module_in(cage).measure(word_at(words, 2, "a quantity"), decimal_at(words, 3, "a value"));
    } else if (verb == "drift") {
        module_in(cage).drift(decimal_at(words, 2, "degrees"), decimal_at(words, 3, "a period"));
    } else if (verb == "light") {
        module_in(cage).set_light(on_or_off(word_at(words, 2, "on or off")));
    } else if (verb == "fault") {
        module_in(cage).set_fault(on_or_off(word_at(words, 2, "on or off")));
    } else if (verb == "poke") {
        const std::string &memory = word_at(words, 2, "id or diag");
        if (memory != "id" && memory != "diag")
            throw ControlError("a memory is id or diag");
        module_in(cage).poke(memory == "diag", number_of(word_at(words, 3, "an offset")),
                             bytes_of(word_at(words, 4, "bytes")));
    } else if (verb == "line") {
        const std::string &name = word_at(words, 2, "a line");
        const auto *line = std::find_if(std::begin(kSfpStatusLines), std::end(kSfpStatusLines),
                                        [&](const char *each) { return name == each; });
        if (line == std::end(kSfpStatusLines))
            throw ControlError("no line \"" + name + "\"");
        const std::string &text = word_at(words, 3, "a text or auto");
        cage.line_text[line - kSfpStatusLines] = text == "auto" ? std::nullopt : std::optional(text);
    } else {
        throw ControlError("the SFP cages take plug, pull, set, drift, light, fault, poke, line and show");
    }
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

std::string SfpCages::control(const Words &words)
{
    if (word_at(words, 0, "plug, pull, set, drift, light, fault, poke, line or show") == "show")
        return show();
    const std::string &number = word_at(words, 1, "a cage");
    if (number != "1" && number != "2")
        throw ControlError("the cages are 1 and 2");
    Cage &cage = cages_[number == "2"];
    if (words[0] == "plug")
        plug(cage, words);
    else if (words[0] == "pull")
        cage.module.reset();
    else
        change(cage, words);
    announce(cage);
    return {};
}

} // namespace vboard
