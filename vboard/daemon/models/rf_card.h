// The RF card: its microcontroller behind a serial line, the FPGA's pins and power, and the driver of its messages.
#pragma once

#include "core/unique_fd.h"
#include "daemon/model.h"
#include "daemon/models/microcontroller.h"

namespace vboard {

using ddal::core::UniqueFd;

class RfCard : public Model {
public:
    using Model::Model;

    void start() override;
    std::vector<IoctlForm> ioctls(const Node &) const override;
    void ioctl(const Node &, uint32_t request, Bytes argument, Answer answer) override;
    static ControlTable commands();

private:
    void open_line();
    void connect_fpga();
    LineFormat line_format() const;
    void read_line();
    void pump();

    std::string show_state();
    void store(uint32_t address, std::span<const uint8_t> bytes);
    void move_version(uint32_t address);
    void arm_fault(const Given &given);

    Microcontroller controller_;
    UniqueFd line_;   // master of the pty
    UniqueFd holder_; // its slave, so that the line stays up while no program has it open
    UniqueFd timer_;
    uint32_t line_device_ = 0; // as the page knows it
};

} // namespace vboard
