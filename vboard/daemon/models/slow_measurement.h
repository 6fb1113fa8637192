// The slow measurement report: fills one of two buffers in the main FPGA at every period and says which.
#pragma once

#include <chrono>

#include "daemon/model.h"

namespace vboard {

class WordRegisters;

class SlowMeasurement : public Model {
public:
    using Model::Model;
    void start() override;
    std::vector<IoctlForm> ioctls(const Node &) const override;
    void ioctl(const Node &, uint32_t request, Bytes argument, Answer answer) override;
    static ControlTable commands();

private:
    std::string show() const;
    void hang_up();
    WordRegisters &fpga() const;
    bool is_c5() const;
    std::chrono::milliseconds period() const;
    void schedule();
    void deliver();
    void fill(uint32_t index);
    void announce(uint32_t index);

    std::vector<Answer> waiters_;
    uint64_t timer_ = 0;
    uint32_t count_ = 0;
    uint32_t next_index_ = 0;
    bool running_ = true;
    bool gone_ = false;
};

} // namespace vboard
