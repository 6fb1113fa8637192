#include "daemon/models/sfp_module.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <numbers>
#include <numeric>

#include "daemon/model.h"

namespace vboard {

namespace {

constexpr size_t kMeasurements = 96;
constexpr size_t kStatus = 110;
constexpr size_t kAlarms = 112;
constexpr size_t kWarnings = 116;
constexpr size_t kExtendedControl = 118;
constexpr size_t kUserArea = 120;

// Bits of the status byte.
constexpr uint8_t kTxDisableState = 0x80;
constexpr uint8_t kSoftTxDisable = 0x40;
constexpr uint8_t kRateSelectState = 0x10;
constexpr uint8_t kSoftRateSelect = 0x08;
constexpr uint8_t kTxFaultState = 0x04;
constexpr uint8_t kRxLosState = 0x02;
// Bits of the extended control byte.
constexpr uint8_t kSoftRateSelect1 = 0x08;
constexpr uint8_t kPowerLevelState = 0x02;
constexpr uint8_t kPowerLevelSelect = 0x01;

enum Quantity : size_t { kTemperature, kVoltage, kBias, kTxPower, kRxPower };
struct QuantityRow {
    const char *name;
    double step;
};
constexpr QuantityRow kQuantities[] = {
    {"temperature", 1.0 / 256}, {"voltage", 0.0001}, {"bias", 0.002}, {"tx", 0.0001}, {"rx", 0.0001}};

// High alarm, low alarm, high warning, low warning of each quantity, as a module of medium reach has them.
constexpr double kThresholds[][4] = {
    {90, -10, 85, -5}, {3.6, 3.0, 3.5, 3.1}, {80, 2, 70, 3}, {1.0, 0.1, 0.8, 0.13}, {1.2, 0.005, 1.0, 0.0063}};

void put_word(SfpModule::Memory &memory, size_t offset, uint16_t value)
{
    memory[offset] = static_cast<uint8_t>(value >> 8);
    memory[offset + 1] = static_cast<uint8_t>(value);
}

uint16_t get_word(const SfpModule::Memory &memory, size_t offset)
{
    return static_cast<uint16_t>(memory[offset] << 8 | memory[offset + 1]);
}

uint16_t raw_of(size_t quantity, double value)
{
    const double steps = std::round(value / kQuantities[quantity].step);
    if (quantity == kTemperature)
        return static_cast<uint16_t>(static_cast<int16_t>(std::clamp(steps, -32768.0, 32767.0)));
    return static_cast<uint16_t>(std::clamp(steps, 0.0, 65535.0));
}

// Comparable numbers: the temperature is signed.
int32_t number_of_raw(size_t quantity, uint16_t raw)
{
    return quantity == kTemperature ? static_cast<int16_t>(raw) : static_cast<int32_t>(raw);
}

void put_checksum(SfpModule::Memory &memory, size_t from, size_t at)
{
    memory[at] =
        std::accumulate(memory.begin() + static_cast<long>(from), memory.begin() + static_cast<long>(at), uint8_t{0},
                        [](uint8_t sum, uint8_t byte) { return static_cast<uint8_t>(sum + byte); });
}

SfpModule::Memory read_memory(const std::filesystem::path &path)
{
    SfpModule::Memory memory;
    std::ifstream in(path, std::ios::binary);
    if (!in.read(reinterpret_cast<char *>(memory.data()), memory.size()))
        throw ControlError("cannot read 256 bytes of " + path.string());
    return memory;
}

// What was said, taken word by word, so that words nobody asked for are found.
class Said {
public:
    explicit Said(SfpModule::Description description) : left_(std::move(description)) {}

    std::string text(const std::string &name, const std::string &otherwise)
    {
        const auto found = left_.find(name);
        if (found == left_.end())
            return otherwise;
        std::string value = found->second;
        left_.erase(found);
        return value;
    }
    double number(const std::string &name, double otherwise)
    {
        const std::string value = text(name, "");
        return value.empty() ? otherwise : decimal_of(value);
    }
    uint8_t byte(const std::string &name, uint8_t otherwise)
    {
        return static_cast<uint8_t>(std::clamp(number(name, otherwise), 0.0, 255.0));
    }
    void finish() const
    {
        if (!left_.empty())
            throw ControlError("a module has no \"" + left_.begin()->first + "\"");
    }

private:
    SfpModule::Description left_;
};

void put_text(SfpModule::Memory &memory, size_t offset, size_t length, const std::string &text)
{
    if (text.size() > length)
        throw ControlError("\"" + text + "\" has more than " + std::to_string(length) + " characters");
    std::fill_n(memory.begin() + static_cast<long>(offset), length, ' ');
    std::copy(text.begin(), text.end(), memory.begin() + static_cast<long>(offset));
}

void put_compliance(SfpModule::Memory &memory, const std::string &digits)
{
    if (digits.size() != 16 || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        throw ControlError("compliance is sixteen hexadecimal digits");
    for (size_t i = 0; i < 8; ++i)
        memory[3 + i] = static_cast<uint8_t>(std::stoul(digits.substr(2 * i, 2), nullptr, 16));
}

uint8_t monitoring_of(const std::string &calibration)
{
    if (calibration == "internal")
        return 0x68;
    if (calibration == "external")
        return 0x58;
    if (calibration == "none")
        return 0;
    throw ControlError("calibration is internal, external or none");
}

// Constants of external calibration that leave every measurement as it is.
void put_plain_constants(SfpModule::Memory &memory)
{
    const float one = 1;
    uint32_t bits;
    std::memcpy(&bits, &one, sizeof bits);
    put_word(memory, 68, static_cast<uint16_t>(bits >> 16));
    put_word(memory, 70, static_cast<uint16_t>(bits));
    for (size_t offset = 76; offset < 92; offset += 4)
        put_word(memory, offset, 0x0100);
}

void put_identity(SfpModule::Memory &id, Said &words)
{
    id[0] = 3; // SFP
    id[1] = 4;
    id[2] = words.byte("connector", 7);
    put_compliance(id, words.text("compliance", "0000000200000000")); // 1000BASE-LX
    id[11] = 1;
    id[12] = words.byte("rate", 13);
    put_text(id, 20, 16, words.text("vendor", "VIRTUAL BOARD"));
    put_text(id, 40, 16, words.text("part", "VB-1000-LX"));
    put_text(id, 56, 4, words.text("revision", "1"));
    put_word(id, 60, static_cast<uint16_t>(std::clamp(words.number("wavelength", 1310), 0.0, 65535.0)));
    id[66] = words.byte("rate-above", 0);
    id[67] = words.byte("rate-below", 0);
    put_text(id, 68, 16, words.text("serial", "VB0000000001"));
    put_text(id, 84, 8, words.text("date", "250314"));
    id[92] = monitoring_of(words.text("calibration", "internal"));
    id[94] = id[92] ? 5 : 0;
    put_checksum(id, 0, 63);
    put_checksum(id, 64, 95);
}

} // namespace

SfpModule SfpModule::from_dump(const std::filesystem::path &folder)
{
    SfpModule module;
    module.id_ = read_memory(folder / "a0.bin");
    module.has_diagnostics_ = std::filesystem::exists(folder / "a2.bin");
    if (module.has_diagnostics_)
        module.diagnostics_ = read_memory(folder / "a2.bin");
    return module;
}

SfpModule SfpModule::from_description(const Description &description)
{
    SfpModule module;
    Said words(description);
    put_identity(module.id_, words);
    module.has_diagnostics_ = module.id_[92] != 0;
    for (size_t quantity = 0; quantity < std::size(kThresholds); ++quantity)
        for (size_t i = 0; i < 4; ++i)
            put_word(module.diagnostics_, quantity * 8 + i * 2, raw_of(quantity, kThresholds[quantity][i]));
    put_plain_constants(module.diagnostics_);
    put_checksum(module.diagnostics_, 0, 95);
    constexpr double kWorking[] = {38.5, 3.29, 14, 0.5, 0.35};
    for (size_t quantity = 0; quantity < std::size(kQuantities); ++quantity)
        module.measure(kQuantities[quantity].name, words.number(kQuantities[quantity].name, kWorking[quantity]));
    words.finish();
    return module;
}

uint16_t SfpModule::word(size_t offset) const
{
    return get_word(diagnostics_, offset);
}

void SfpModule::measure(const std::string &quantity, double value)
{
    for (size_t i = 0; i < std::size(kQuantities); ++i) {
        if (quantity == kQuantities[i].name) {
            put_word(diagnostics_, kMeasurements + 2 * i, raw_of(i, value));
            return;
        }
    }
    throw ControlError("a module does not measure \"" + quantity + "\"");
}

void SfpModule::drift(double degrees, double period_s)
{
    if (period_s <= 0)
        throw ControlError("the period is more than 0 seconds");
    drift_degrees_ = degrees;
    drift_period_ = period_s;
}

bool SfpModule::loses_signal() const
{
    return !light_ || (has_diagnostics_ && (diagnostics_[kStatus] & kRxLosState));
}

bool SfpModule::has_fault() const
{
    return fault_ || (has_diagnostics_ && (diagnostics_[kStatus] & kTxFaultState));
}

void SfpModule::raise_flags(Memory &memory)
{
    uint16_t alarms = 0;
    uint16_t warnings = 0;
    for (size_t quantity = 0; quantity < std::size(kQuantities); ++quantity) {
        const auto at = [&](size_t offset) { return number_of_raw(quantity, get_word(memory, offset)); };
        const int32_t now = at(kMeasurements + 2 * quantity);
        const auto high = static_cast<uint16_t>(0x8000 >> (2 * quantity));
        const auto low = static_cast<uint16_t>(high >> 1);
        const size_t thresholds = quantity * 8;
        alarms =
            static_cast<uint16_t>(alarms | (now > at(thresholds) ? high : 0) | (now < at(thresholds + 2) ? low : 0));
        warnings = static_cast<uint16_t>(warnings | (now > at(thresholds + 4) ? high : 0) |
                                         (now < at(thresholds + 6) ? low : 0));
    }
    put_word(memory, kAlarms, alarms);
    put_word(memory, kWarnings, warnings);
}

SfpModule::Memory SfpModule::bytes(unsigned memory, const Surroundings &around) const
{
    if (memory == 0)
        return id_;
    Memory now = diagnostics_;
    const bool disabled = around.tx_disabled || (now[kStatus] & kSoftTxDisable);
    if (drift_degrees_ != 0) {
        const double swing = drift_degrees_ * std::sin(2 * std::numbers::pi * around.seconds / drift_period_);
        const double degrees = static_cast<int16_t>(word(kMeasurements)) / 256.0 + swing;
        put_word(now, kMeasurements, raw_of(kTemperature, degrees));
    }
    if (disabled) {
        put_word(now, kMeasurements + 2 * kBias, 0);
        put_word(now, kMeasurements + 2 * kTxPower, 0);
    }
    if (!light_)
        put_word(now, kMeasurements + 2 * kRxPower, 0);
    now[kStatus] = static_cast<uint8_t>(now[kStatus] | (disabled ? kTxDisableState : 0) |
                                        (around.rate_select ? kRateSelectState : 0) |
                                        (has_fault() ? kTxFaultState : 0) | (loses_signal() ? kRxLosState : 0));
    raise_flags(now);
    return now;
}

void SfpModule::write_diagnostics(uint64_t offset, std::span<const uint8_t> bytes)
{
    for (size_t i = 0; i < bytes.size() && offset + i < diagnostics_.size(); ++i) {
        uint8_t &byte = diagnostics_[offset + i];
        uint8_t mask = 0;
        if (offset + i == kStatus)
            mask = kSoftTxDisable | kSoftRateSelect;
        else if (offset + i == kExtendedControl)
            mask = kSoftRateSelect1 | kPowerLevelSelect;
        else if (offset + i >= kUserArea)
            mask = 0xFF;
        byte = static_cast<uint8_t>((byte & ~mask) | (bytes[i] & mask));
    }
    uint8_t &extended = diagnostics_[kExtendedControl];
    extended =
        static_cast<uint8_t>((extended & ~kPowerLevelState) | ((extended & kPowerLevelSelect) ? kPowerLevelState : 0));
}

void SfpModule::poke(unsigned memory, uint64_t offset, std::span<const uint8_t> bytes)
{
    Memory &target = memory == 0 ? id_ : diagnostics_;
    if (offset + bytes.size() > target.size())
        throw ControlError("a memory has 256 bytes");
    std::copy(bytes.begin(), bytes.end(), target.begin() + static_cast<long>(offset));
}

} // namespace vboard
