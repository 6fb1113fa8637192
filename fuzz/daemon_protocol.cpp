// The daemon's protocol. For any sequence of messages from a client, the daemon answers, refuses or cuts the client
// off. It stays within its memory, throws nothing, and answers the next client.
//
// Input: messages, each after two bytes with its length, the first byte the low one.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <span>
#include <sys/socket.h>
#include <sys/un.h>

#include "daemon/board.h"
#include "daemon/board_file.h"
#include "daemon/loop.h"
#include "daemon/server.h"
#include "page/protocol.h"

namespace fs = std::filesystem;
using namespace vboard;

namespace {

// One node of each kind and of each form of request. The models that start programs or wait for them stay out.
constexpr const char kDescription[] = R"(board 9 "fuzzed board"
file /proc/cma "physical name size     state\n0c000000 MSM  00600000 shared\n"
node /dev/fpga_usr model fpga
node /dev/dfe model dfe
node /dev/fpga_rf1 model rf-fpga1
node /dev/fpga_smr model slow-measurement
node /dev/fpga_laa channel laa
node /dev/fpga_laa_sas0 signal laa
node /sys/class/fpga_usr/fpga_usr/rp3_alarm notify alarms
node /dev/cma model cma 0x1000 mapped
node /dev/emtimer model emtimer
node /dev/pps/fpga-pps model pps
node /dev/spidev2.1 model jitter-cleaner
node /sys/class/fpga_sfp/fpga_sfp/device/tx_dis model sfp
node /sys/class/fpga_sfp/fpga_sfp/device/presence notify sfp
node /sys/bus/mdio_bus/devices/0.0:00/phy_regs model phy 0x1000000
node /sys/class/cpld-usr/cpld-usr/bh_phy_reset attribute phy
model interfaces
model switch
model multiport
)";

constexpr int kRunsOfABoard = 500; // what programs leave in the models is limited by their number
constexpr int kRunsOfACheck = 8;
constexpr int kMostMessages = 24;

class Machine {
public:
    Machine()
    {
        char name[] = "/tmp/fuzz-board-XXXXXX";
        directory_ = mkdtemp(name);
        std::ofstream(directory_ / "description") << kDescription;
        create_board(directory_ / "board", directory_ / "description");
        const auto page = std::make_unique<Page>();
        page->magic = kPageMagic;
        page->version = kPageVersion;
        page->speed = 1;
        std::ofstream(board_folder() / ".vboard/page", std::ios::binary)
            .write(reinterpret_cast<const char *>(page.get()), sizeof *page);
    }
    ~Machine() { fs::remove_all(directory_); }

    void restart()
    {
        server_.reset();
        board_.reset();
        loop_.emplace();
        board_ = std::make_unique<Board>(board_folder(), *loop_);
        server_ = std::make_unique<Server>(*board_);
        server_->stop_when_unheld(false);
    }

    UniqueFd connect_client() const
    {
        sockaddr_un name{};
        name.sun_family = AF_UNIX;
        const std::string path = (board_folder() / ".vboard/socket").string();
        memcpy(name.sun_path, path.c_str(), path.size());
        UniqueFd fd{socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)};
        if (connect(fd.get(), reinterpret_cast<sockaddr *>(&name), sizeof name) != 0)
            abort();
        return fd;
    }

    // Lets the daemon handle what has arrived: one message of each client a round.
    void run(int rounds)
    {
        for (int i = 0; i < rounds; ++i) {
            loop_->at(std::chrono::steady_clock::now(), [this] { loop_->stop(); });
            loop_->run();
        }
    }

private:
    fs::path board_folder() const { return directory_ / "board"; }

    fs::path directory_;
    std::optional<Loop> loop_;
    std::unique_ptr<Board> board_;
    std::unique_ptr<Server> server_;
};

void drain(int fd)
{
    char answer[sizeof(ReplyHeader)];
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    for (;;) {
        iovec part{answer, sizeof answer};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        if (recvmsg(fd, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC) <= 0)
            return;
        if (const cmsghdr *attached = CMSG_FIRSTHDR(&message); attached && attached->cmsg_type == SCM_RIGHTS) {
            int given;
            memcpy(&given, CMSG_DATA(attached), sizeof given);
            close(given);
        }
    }
}

void expect_service(Machine &machine)
{
    const UniqueFd fd = machine.connect_client();
    RequestHeader header{};
    header.op = Op::kRead;
    header.node = 1;
    header.id = 77;
    header.length = 4;
    send(fd.get(), &header, sizeof header, MSG_NOSIGNAL);
    machine.run(2);
    ReplyHeader reply{};
    if (recv(fd.get(), &reply, sizeof reply, MSG_DONTWAIT | MSG_TRUNC) != sizeof reply + 4 || reply.id != 77 ||
        reply.result != 4) {
        fprintf(stderr, "the daemon does not serve the next client\n");
        abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static Machine machine;
    static int runs;
    if (runs++ % kRunsOfABoard == 0)
        machine.restart();
    {
        const UniqueFd client = machine.connect_client();
        std::span<const uint8_t> left{data, size};
        for (int messages = 0; left.size() > 2 && messages < kMostMessages; ++messages) {
            const size_t length = std::min<size_t>(left[0] | left[1] << 8, left.size() - 2);
            send(client.get(), left.data() + 2, length, MSG_NOSIGNAL);
            left = left.subspan(2 + length);
            machine.run(1);
            if (length % 8 != 7) // some clients leave their answers
                drain(client.get());
        }
        machine.run(1);
        drain(client.get());
    }
    if (runs % kRunsOfACheck == 0)
        expect_service(machine);
    return 0;
}
