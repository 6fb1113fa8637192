// An SFP module: two memories and a small life of its own.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <span>
#include <string>

namespace vboard {

class SfpModule {
public:
    using Memory = std::array<uint8_t, 256>;
    using Description = std::map<std::string, std::string>;

    // From a0.bin and, unless the module has no diagnostics, a2.bin of a folder.
    static SfpModule from_dump(const std::filesystem::path &folder);
    // From words such as vendor=..., with working values for what is not said. Throws ControlError for a word it does
    // not know or a value it cannot use.
    static SfpModule from_description(const Description &description);

    // What the cage does to the module.
    struct Surroundings {
        double seconds; // since it was plugged
        bool tx_disabled;
        bool rate_select;
    };

    // The bytes that a memory shows; a module without diagnostics has no second one.
    bool has(unsigned memory) const { return memory == 0 || has_diagnostics_; }
    Memory bytes(unsigned memory, const Surroundings &around) const;
    // Takes what the module lets a host write; the rest is lost, as in a real one.
    void write_diagnostics(uint64_t offset, std::span<const uint8_t> bytes);
    void poke(unsigned memory, uint64_t offset, std::span<const uint8_t> bytes);

    // Sets a measurement: temperature, voltage, bias, tx, rx; in the units of an internally calibrated module.
    void measure(const std::string &quantity, double value);
    // Lets the temperature swing around its value.
    void drift(double degrees, double period_s);
    void set_light(bool there) { light_ = there; }
    void set_fault(bool fault) { fault_ = fault; }

    bool loses_signal() const;
    bool has_fault() const;

private:
    uint16_t word(size_t offset) const;
    static void raise_flags(Memory &memory);

    Memory id_{};
    Memory diagnostics_{};
    bool has_diagnostics_ = true;
    bool light_ = true;
    bool fault_ = false;
    double drift_degrees_ = 0;
    double drift_period_ = 1;
};

} // namespace vboard
