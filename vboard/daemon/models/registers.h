// Register spaces: sparse sets of registers behind a node, with hooks for the registers that do something.
#pragma once

#include <functional>
#include <map>

#include "daemon/model.h"

namespace vboard {

// 32-bit little-endian registers at multiples of 4, with the masked write done by the driver.
class WordRegisters : public Model {
public:
    using Model::Model;

    std::vector<IoctlForm> ioctls(const Node &) const override;
    int read(const Node &, uint64_t offset, std::span<uint8_t> out) override;
    int write(const Node &, uint64_t offset, std::span<const uint8_t> in) override;
    void ioctl(const Node &, uint32_t request, Bytes argument, Answer answer) override;
    static ControlTable commands();

    uint32_t get(uint32_t address) const;
    void set(uint32_t address, uint32_t value);

    // Calls `hook` with the new value after each write by a program.
    void on_write(uint32_t address, std::function<void(uint32_t)> hook) { write_hooks_[address] = std::move(hook); }
    // Lets `hook` supply the value of a register that lives.
    void on_read(uint32_t address, std::function<uint32_t()> hook) { read_hooks_[address] = std::move(hook); }

private:
    void store(uint32_t address, uint32_t value);

    std::map<uint32_t, uint32_t> words_;
    std::map<uint32_t, std::function<void(uint32_t)>> write_hooks_;
    std::map<uint32_t, std::function<uint32_t()>> read_hooks_;
};

// 8-bit registers: at multiples of `spacing` (the CPLD: 4) or a plain byte space (the DFE: 1).
class ByteRegisters : public Model {
public:
    ByteRegisters(Board &board, uint32_t spacing, uint64_t size) : Model(board), spacing_(spacing), size_(size) {}

    int read(const Node &, uint64_t offset, std::span<uint8_t> out) override;
    int write(const Node &, uint64_t offset, std::span<const uint8_t> in) override;
    static ControlTable commands();

    uint8_t get(uint64_t address) const;
    void set(uint64_t address, uint8_t value);
    void on_write(uint64_t address, std::function<void(uint8_t)> hook) { write_hooks_[address] = std::move(hook); }

protected:
    uint64_t size() const { return size_; }

private:
    uint32_t spacing_;
    uint64_t size_;
    std::map<uint64_t, uint8_t> bytes_;
    std::map<uint64_t, std::function<void(uint8_t)>> write_hooks_;
};

} // namespace vboard
