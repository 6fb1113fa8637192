// The frame driver: publishes the frame page every 10 ms of board time, in phase with the processor counter.
#pragma once

#include "daemon/model.h"
#include "platform/frame_driver.h"

namespace vboard {

class Frame : public Model {
public:
    using Model::Model;
    ~Frame() override;

    void start() override;
    std::vector<IoctlForm> ioctls(const Node &) const override;
    void ioctl(const Node &, uint32_t request, Bytes argument, Answer answer) override;
    static ControlTable commands();

private:
    std::string show() const;

    struct Waiter {
        Answer answer;
        bool any; // next frame, whatever its number
        uint32_t sfn;
    };
    void tick();
    void publish(uint64_t frame);
    void wake(uint64_t first, uint64_t last);
    void schedule();

    ddal::platform::FramePage *page_ = nullptr;
    std::vector<Waiter> waiters_;
    uint64_t last_frame_ = 0; // counter value / counts per frame
    int64_t offset_ = 0;      // frame count minus that
    bool running_ = true;
    bool valid_ = true;
};

} // namespace vboard
