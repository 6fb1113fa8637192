// What the library needs from a board: one row for each path, made of needs.txt.
#pragma once

#include <span>

namespace ddalctl::doctor {

enum class NeedKind {
    node,
    attribute,
    property,
    file,
    folder,
    program,
    made,     // by the library
    optional, // may be missing
    socket,   // abstract, of packets
    port,     // of TCP, on the loopback address
    bus,      // a service of the message bus; the path is that of its links
    library,
    frame, // the frame driver's node and page
};

enum class Content {
    any,
    decimal,
    hexadecimal,
    text,
    cell,
    cells,
    board_type,
    mac,
    colour,  // of a LED
    mounts,  // the mount table
    regions, // of contiguous memory
    items,   // of the system-information store
    history, // the PAM stack with the length of the password history
    version, // register 0 of the main FPGA
};

enum class Level {
    fatal, // no program can start
    error,
    warning,
};

// The properties of a board that decide what it needs. All but the first are false if its type cannot be read.
struct Circumstances {
    bool always = true;
    bool known = false; // the type of the board
    bool phys = false;
    bool direct_phys = false; // the processor reaches them itself
    bool one_bus = false;     // of direct PHYs
    bool two_buses = false;
    bool broadcom_switch = false;
    bool no_switch = false;
    bool sfp_on_i2c = false;
    bool sfp_on_cpld = false;
    bool four_ports = false;
    bool three_ports = false;
    bool straight_ports = false; // three, and the interfaces follow the numbers of the ports
    bool swapped_ports = false;  // three, and eth0 is port 2
};

struct Need {
    const char *family;
    NeedKind kind;
    int access; // of access()
    Content content;
    bool Circumstances::*when;
    Level level;
    const char *path;
    const char *effect; // what requires it
    const char *next;   // empty: the kind's next step
};

std::span<const Need> needs();

} // namespace ddalctl::doctor
