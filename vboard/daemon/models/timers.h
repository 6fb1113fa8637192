// Timer devices of the FPGA: event timers, and the pulse per second.
#pragma once

#include <map>

#include "daemon/model.h"

namespace vboard {

// Event timers: a driver that hands out numbers and keeps what it was told.
class EventTimers : public Model {
public:
    using Model::Model;
    std::vector<IoctlForm> ioctls(const Node &) const override;
    void ioctl(const Node &, uint32_t request, Bytes argument, Answer answer) override;
    static ControlTable commands();

private:
    void clear();
    std::string show() const;

    struct Timer {
        uint32_t setting[4];
        uint32_t a;
        uint32_t b;
        int64_t armed_ns;
    };
    std::map<uint32_t, Timer> timers_;
    std::vector<uint32_t> configuration_;
    uint32_t next_ = 1;
};

// One assert event at every full second of the board's real time.
class PulsePerSecond : public Model {
public:
    using Model::Model;
    void start() override;
    std::vector<IoctlForm> ioctls(const Node &) const override;
    void ioctl(const Node &, uint32_t request, Bytes argument, Answer answer) override;
    static ControlTable commands();

private:
    void schedule();
    void pulse();
    void fetch(const Bytes &argument, const Answer &answer);

    std::vector<std::pair<Answer, Bytes>> waiters_;
    uint32_t sequence_ = 0;
    int64_t assert_ns_ = 0;
    int32_t mode_ = 0;
    bool running_ = true;
    bool settable_ = true;
};

} // namespace vboard
