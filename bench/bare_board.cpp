// Runs a program in a mount namespace whose /dev and /sys hold plain files for the board's nodes, so that only the
// kernel lies between the library and the files. Takes the part of the frame driver meanwhile.
//
// usage: bare_board PROGRAM [ARGUMENT...]
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <string>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/cpu_counter.h"
#include "dsp/cma_driver.h"
#include "logic/fpga_driver.h"
#include "logic/rf_fpga_driver.h"
#include "platform/frame_driver.h"
#include "sfp/table.h"

using namespace ddal::platform;
using namespace ddal::sfp;

namespace {

constexpr off_t kFpgaSpace = 0x200000;
constexpr off_t kDmaSpace = 0x800000;

[[noreturn]] void fail(const char *what)
{
    fprintf(stderr, "bare_board: %s: %s\n", what, strerror(errno));
    exit(2);
}

void write_text(const char *path, const std::string &text)
{
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        fail(path);
    close(fd);
}

int make_node(const char *path, off_t size)
{
    const int fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0 || ftruncate(fd, size) != 0)
        fail(path);
    return fd;
}

void enter_namespace()
{
    const uid_t uid = getuid();
    const gid_t gid = getgid();
    if (uid == 0 && unshare(CLONE_NEWNS) == 0)
        return;
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        fail("no mount namespace to be had");
    write_text("/proc/self/setgroups", "deny");
    write_text("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
    write_text("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
}

// Makes a /dev with the nodes of the benchmarks and the machine's null device. Returns the frame page.
FramePage *furnish_dev()
{
    const int null_device = open("/dev/null", O_PATH | O_CLOEXEC);
    const std::string null_path = "/proc/self/fd/" + std::to_string(null_device);
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("bare_board", "/dev", "tmpfs", MS_NOSUID, nullptr) != 0)
        fail("cannot mount a /dev");
    close(make_node("/dev/null", 0));
    if (mount(null_path.c_str(), "/dev/null", nullptr, MS_BIND, nullptr) != 0)
        fail("/dev/null");
    close(null_device);

    const auto page_size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    close(make_node(ddal::logic::kFpgaNode, kFpgaSpace));
    close(make_node(ddal::logic::kRfFpgaNode0, kFpgaSpace));
    close(make_node(ddal::dsp::kCmaNode, kDmaSpace));
    const int frame = make_node(kFrameNode, static_cast<off_t>(page_size));
    void *page = mmap(nullptr, page_size, PROT_READ | PROT_WRITE, MAP_SHARED, frame, 0);
    if (page == MAP_FAILED)
        fail(kFrameNode);
    close(frame);
    return static_cast<FramePage *>(page);
}

// Makes a node and its missing folders.
void make_file(const char *path, const std::string &content, off_t size)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    close(make_node(path, size));
    write_text(path, content);
}

// Makes a /sys with an internally and an externally calibrated SFP module, and a PHY behind the interface eth0.
void furnish_sys()
{
    constexpr off_t kMemorySize = 256;
    constexpr off_t kMonitoringType = 92;
    if (mount("bare_board", "/sys", "tmpfs", MS_NOSUID, nullptr) != 0)
        fail("cannot mount a /sys");
    for (const SfpCage &cage : kSfpCagesOnI2c) {
        for (const char *memory : cage.memory) {
            std::filesystem::create_directories(std::filesystem::path(memory).parent_path());
            const int fd = make_node(memory, kMemorySize);
            const uint8_t type = cage.id == DDAL_SFP_1 ? 0x68 : 0x58;
            if (memory == cage.memory[DDAL_SFP_MEMORY_ID] && pwrite(fd, &type, 1, kMonitoringType) != 1)
                fail(memory);
            close(fd);
        }
    }
    make_file("/sys/class/net/eth0/dev_id", "0x0\n", 0);
    make_file("/sys/bus/mdio_bus/devices/2090300.mdio:00/phy_regs", std::string("\0\0\0\0\x41\x01\xd0\x0d", 8), 64);
}

void set(uint32_t &word, uint64_t value)
{
    __atomic_store_n(&word, static_cast<uint32_t>(value), __ATOMIC_SEQ_CST);
}

void publish(FramePage &page, uint64_t frame)
{
    timespec monotonic, real;
    clock_gettime(CLOCK_MONOTONIC, &monotonic);
    clock_gettime(CLOCK_REALTIME, &real);
    const uint64_t counter = frame * kCountsPerFrame;
    set(page.sequence, page.sequence + 1);
    set(page.bcn_low, frame);
    set(page.bcn_high, frame >> 32);
    set(page.counter_low, counter);
    set(page.counter_high, counter >> 32);
    set(page.a_sec, static_cast<uint64_t>(monotonic.tv_sec));
    set(page.a_nsec, static_cast<uint64_t>(monotonic.tv_nsec));
    set(page.b_sec, static_cast<uint64_t>(real.tv_sec));
    set(page.b_nsec, static_cast<uint64_t>(real.tv_nsec));
    set(page.sequence, page.sequence + 1);
}

void wait_for_next_frame()
{
    const uint64_t counts_left = kCountsPerFrame - ddal::core::cpu_counter() % kCountsPerFrame;
    const auto nanoseconds = counts_left * kFrameNanoseconds / kCountsPerFrame;
    const timespec pause{.tv_sec = 0, .tv_nsec = static_cast<long>(nanoseconds)};
    nanosleep(&pause, nullptr);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: bare_board PROGRAM [ARGUMENT...]\n");
        return 2;
    }
    enter_namespace();
    FramePage &page = *furnish_dev();
    furnish_sys();
    publish(page, ddal::core::cpu_counter() / kCountsPerFrame);

    const pid_t pid = fork();
    if (pid < 0)
        fail("fork");
    if (pid == 0) {
        execv(argv[1], argv + 1);
        fail(argv[1]);
    }
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        wait_for_next_frame();
        publish(page, ddal::core::cpu_counter() / kCountsPerFrame);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 2;
}
