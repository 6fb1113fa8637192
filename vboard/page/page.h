// The board's shared page, with all facts that the preload library must know without a request to the daemon.
//
// One file per board, mapped by the daemon, by every process of the board and by the control client. All fields are
// fixed width and naturally aligned, so that 32- and 64-bit processes share it.
#pragma once

#include <atomic>
#include <cstdint>

namespace vboard {

constexpr uint32_t kPageMagic = 0x56424F44;
constexpr uint32_t kPageVersion = 6;

enum class NodeKind : uint32_t {
    kPlain = 1,     // a real file, listed so that traces and faults know its name
    kModel = 2,     // transfers and requests go to the daemon
    kAttribute = 3, // read as a plain file, writes go to the daemon
    kChannel = 4,   // opening yields one end of a socket that the daemon writes records to
    kNotify = 5,    // an attribute that signals changes with POLLPRI until it is read
    kSignal = 6,    // a device that signals events with POLLPRI; the poll that reports an event takes it
};

// The name of a node under root/ is a socket, so that a raw open fails with ENXIO (kPlain: the file itself). The node's
// file in kNodeFiles holds the text of an attribute, the memory of a mapped node, and what stat reports. The open
// descriptor of a model's node is its folder in kNodeHandles: raw transfers fail, positions and locks work.
struct Node {
    char path[112];
    uint32_t id;
    NodeKind kind;
    uint64_t device; // device of what an open descriptor stands for (major in the upper half)
    uint64_t inode;
    uint32_t is_mapped; // 1: mmap maps the node's file
    uint32_t reserved;
};
static_assert(sizeof(Node) == 144);

constexpr char kNodeFiles[] = "nodes"; // below .vboard
constexpr char kNodeHandles[] = "handles";
constexpr char kNodeSlash = '!'; // for each slash of the node's path in a name there: a folder takes a block of a disk

// Number of bytes that an ioctl carries. It is never derived from the request number.
struct IoctlForm {
    uint32_t node;
    uint32_t request;
    uint32_t size;     // bytes behind the pointer, both ways
    uint32_t by_value; // 1: the argument is a word, not a pointer
};

// Rule "fail the n-th matching call". The control client writes it, the preload library counts.
struct FaultRule {
    std::atomic<uint32_t> armed;
    std::atomic<uint32_t> seen;
    std::atomic<uint32_t> fired;
    uint32_t nth;      // first matching call that fails, from 1
    uint32_t count;    // number of calls that fail; 0 = all
    int32_t error;     // errno to fail with; 0 = do not fail
    uint32_t limit;    // transfer at most limit - 1 bytes; 0 = no limit
    uint32_t delay_us; // wait before the call
    uint32_t variant;  // with error -1: which of the call's plausible failures
    uint32_t pid;      // only this process and its forked children until they exec; 0 = any
    char call[24];     // "pread", or "" for any call
    char path[112];    // board path, exact or with a closing "*"; "" for any
    char hit_call[24]; // the call on which the rule last fired
    char hit_path[112];
    uint32_t hit_limit; // as `limit`
    int32_t hit_error;  // the failure that was injected; 0 for a short transfer
    uint32_t exhausted; // the call has fewer plausible failures than `variant`
};

// Line settings of a terminal of the board. A pty forgets parity and rate, so the page stores the requested ones.
struct Terminal {
    std::atomic<uint32_t> device; // of the pty's slave, 0 = unused
    std::atomic<uint32_t> cflag;
    std::atomic<uint32_t> input_speed;
    std::atomic<uint32_t> output_speed;
    char path[64]; // path of a line of the board; "" for any other terminal
};

// TCP ports and local names that are global on a host and private to a board.
struct PortMap {
    uint16_t board;
    uint16_t host;
};

constexpr uint32_t kMaxNodes = 192;
constexpr uint32_t kMaxIoctls = 192;
constexpr uint32_t kMaxFaults = 16;
constexpr uint32_t kMaxWritable = 8;
constexpr uint32_t kMaxEnvironment = 8;
constexpr uint32_t kMaxPorts = 8;
constexpr uint32_t kMaxTerminals = 8;

struct Page {
    uint32_t magic;
    uint32_t version;
    char root[256];                   // <board directory>/root
    char private_dir[256];            // <board directory>/.vboard
    char writable[kMaxWritable][256]; // places of the host where the board's programs may write
    uint32_t writable_count;
    char network[60];                        // the namespace where interface requests go to the kernel; "": nowhere
    char environment[kMaxEnvironment][1024]; // NAME=value, restored in every environment
    uint32_t environment_count;
    // Start of the name of a library, for the programs that are linked with it. May be empty.
    char runtime[64];
    char runtime_preload[1024]; // replaces the first entry of `environment` for those
    char emulator[512];         // of other processors' programs: path and options, each closed by NUL; "" without one
    uint32_t native_machine;    // as in an ELF header; runs without the emulator
    uint32_t loaders;           // a bit for each row of kLoaders (escapes.h) that finds the board\'s preload libraries
    uint32_t speed;             // board seconds per host second
    uint32_t fenced;            // 1: every program is in the namespaces of the board
    int64_t epoch_ns[2];        // real time and monotonic time at which scaling started
    std::atomic<uint32_t> trace;
    std::atomic<uint32_t> fault_count; // rules in use
    uint32_t node_count;
    uint32_t ioctl_count;
    uint32_t port_count;
    PortMap ports[kMaxPorts];
    Node nodes[kMaxNodes];
    IoctlForm ioctls[kMaxIoctls];
    FaultRule faults[kMaxFaults];
    Terminal terminals[kMaxTerminals];
};
static_assert(std::atomic<uint32_t>::is_always_lock_free);

constexpr uint64_t kTraceLimit = 64ull << 20;
constexpr uint64_t kSyslogLimit = 64ull << 20;
constexpr char kTraceEnd[] = "{\"v\":1,\"call\":\"limit\",\"path\":\"\",\"result\":-1}\n";
constexpr char kSyslogEnd[] = "0 4 vboard: the log has reached its limit and ends here\n";

} // namespace vboard
