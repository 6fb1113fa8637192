// RF FPGAs 1 to 3: 8-bit registers behind SPI, by request or as a plain byte space. (Device 0 is a WordRegisters.)
#pragma once

#include "daemon/models/registers.h"

namespace vboard {

class SpiRegisters : public ByteRegisters {
public:
    using ByteRegisters::ByteRegisters;

    std::vector<IoctlForm> ioctls(const Node &) const override;
    void ioctl(const Node &, uint32_t request, Bytes argument, Answer answer) override;
};

} // namespace vboard
