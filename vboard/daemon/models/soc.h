// Parts of the processor: contiguous memory for DMA, and the antenna interface's registers.
#pragma once

#include <map>

#include "daemon/model.h"

namespace vboard {

// The contiguous-memory driver. The memory is the node's file, at file offset = physical address, so that all programs
// share it; the regions are those of /proc/cma, by the name in their second column (MSM, DDR).
class ContiguousMemory : public Model {
public:
    using Model::Model;
    std::vector<IoctlForm> ioctls(const Node &) const override;
    void ioctl(const Node &, uint32_t request, Bytes argument, Answer answer) override;
    static ControlTable commands();

private:
    int allocate(uint32_t mem_type, uint32_t size, uint32_t *physical);
    std::string show() const;

    std::map<uint32_t, uint64_t> used_; // bytes, by memory type
    unsigned initialised_ = 0;
    unsigned pmu_enabled_ = 0;
};

// The antenna interface, in the file that stands for physical memory.
class AntennaInterface : public Model {
public:
    using Model::Model;
    void start() override;
    static ControlTable commands();

private:
    uint32_t get(uint32_t address) const;
    void set(uint32_t address, uint32_t value) const;
    void set_state(uint32_t alarm, uint32_t status) const;
};

} // namespace vboard
