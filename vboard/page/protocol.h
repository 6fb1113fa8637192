// Messages between the preload library and the daemon: one header and a payload per SOCK_SEQPACKET message.
#pragma once

#include <cstdint>

namespace vboard {

enum class Op : uint32_t {
    kOpen = 1, // channels and notifying attributes; the answer carries a descriptor
    kRead = 2,
    kWrite = 3,
    kIoctl = 4,
    kCancel = 5,      // the id of the interrupted request
    kControl = 6,     // a control command in words separated by NUL; the answer is text
    kHold = 7,        // keeps the board alive until the connection ends
    kNotifyRead = 8,  // text of a notifying attribute; flags: the socket's serial; offset all ones: read position
    kNotifySeek = 11, // sets the read position
    kInterface = 9,   // an ethtool, MII or interface-flag request
    kSwitch = 10,     // a call of the switch's client library
    kBus = 13,        // starts the message bus, which programs seldom need
    kRefused = 12,    // a line for the daemon's log; request: the errno, payload: name of the refused call
};

struct RequestHeader {
    Op op;
    uint32_t node;
    uint32_t id;
    uint32_t request; // ioctl number
    uint64_t offset;
    uint32_t length; // bytes to read; otherwise the message gives the payload length
    uint32_t flags;  // open flags
    int32_t pid;
    int32_t tid;
};
static_assert(sizeof(RequestHeader) == 40);

struct ReplyHeader {
    uint32_t id;
    int32_t result; // bytes or the call's result; negative: -errno
    uint32_t length;
    uint32_t reserved;
};
static_assert(sizeof(ReplyHeader) == 16);

// An interface request: the content of the caller's record, in both directions.
struct InterfaceRequest {
    char name[16];
    uint32_t flags;
    uint8_t record[64];
};
static_assert(sizeof(InterfaceRequest) == 84);

// A call of the switch's client library: its name, then its arguments as 64-bit words. The answer is the SDK's result,
// then the outputs as words.
constexpr uint32_t kSwitchCallName = 56; // bytes of the name, closed by NUL

constexpr uint32_t kMaxPayload = 64 * 1024;

// The daemon binds its end of a handed-out socket to an abstract name of this form: "vboard/<page inode>/<node
// id>/<serial>/<random number>". The name leads from a descriptor to its node after dup, fork and exec.
constexpr char kPeerPrefix[] = "vboard/";

} // namespace vboard
