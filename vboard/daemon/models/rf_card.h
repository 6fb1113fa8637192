// The RF card: its microcontroller behind a serial line, the FPGA's pins and power, and the driver of its messages.
#pragma once

#include "daemon/descriptor.h"
#include "daemon/model.h"
#include "daemon/models/microcontroller.h"

namespace vboard {

class RfCard : public Model {
public:
    using Model::Model;

    void start() override;
    std::vector<IoctlForm> ioctls(const Node &) const override;
    void ioctl(const Node &, uint32_t request, Bytes argument, Answer answer) override;
    // See kVerbs: state, commands, pace, ready-time, version, version-address, loader-version, password, poke, peek,
    // fault
    std::string control(const Words &words) override;

private:
    struct Verb {
        const char *name;
        std::string (RfCard::*run)(const Words &words);
    };
    static const Verb kVerbs[];

    void open_line();
    void connect_fpga();
    LineFormat line_format() const;
    void read_line();
    void pump();

    std::string show_state(const Words &words);
    std::string show_commands(const Words &words);
    std::string set_pace(const Words &words);
    std::string set_ready_time(const Words &words);
    std::string set_version(const Words &words);
    std::string set_version_address(const Words &words);
    std::string set_loader_version(const Words &words);
    std::string set_password(const Words &words);
    std::string poke(const Words &words);
    std::string peek(const Words &words);
    std::string arm_fault(const Words &words);

    Microcontroller controller_;
    Descriptor line_;   // master of the pty
    Descriptor holder_; // its slave, so that the line stays up while no program has it open
    Descriptor timer_;
    uint32_t line_device_ = 0; // as the page knows it
};

} // namespace vboard
