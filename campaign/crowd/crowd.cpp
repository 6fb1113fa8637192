// Many programs on one board, some of which misbehave. One well-behaved program measures how long its accesses take.
//
//   crowd EXCHANGES
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "core/unique_fd.h"
#include "page/page.h"
#include "page/protocol.h"

namespace {

using ddal::core::UniqueFd;
using Clock = std::chrono::steady_clock;
using vboard::Op;
using vboard::ReplyHeader;
using vboard::RequestHeader;

constexpr int kPrograms = 64;
constexpr int kConnectionsEach = 16;
constexpr auto kMostWait = std::chrono::seconds(2);
constexpr long kMostGrowthKiB = 512;
constexpr const char *kRegisters = "/dev/dfe";
constexpr const char *kAlarm = "/sys/class/fpga_usr/fpga_usr/rp3_alarm";

int g_passed;
int g_failed;

void check(bool good, const std::string &what)
{
    ++(good ? g_passed : g_failed);
    printf("%s %s\n", good ? "ok    " : "FAILED", what.c_str());
}

std::string private_folder()
{
    const std::string page = getenv("VBOARD_PAGE");
    return page.substr(0, page.rfind('/'));
}

UniqueFd connect_to_daemon()
{
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    const std::string path = private_folder() + "/socket";
    memcpy(name.sun_path, path.c_str(), std::min(path.size(), sizeof name.sun_path - 1));
    UniqueFd fd{socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)};
    if (connect(fd.get(), reinterpret_cast<sockaddr *>(&name), sizeof name) != 0)
        return UniqueFd{};
    return fd;
}

bool ask(int fd, Op op, uint32_t length = 0)
{
    RequestHeader header{};
    header.op = op;
    header.node = 1;
    header.id = 1;
    header.length = length;
    return send(fd, &header, sizeof header, MSG_NOSIGNAL) == sizeof header;
}

bool exchange(int fd)
{
    ReplyHeader reply{};
    return ask(fd, Op::kRead, 4) && recv(fd, &reply, sizeof reply, MSG_TRUNC) > 0;
}

// Starts a program that runs `act` until it is killed.
template <typename Act>
pid_t start(Act act)
{
    const pid_t child = fork();
    if (child != 0)
        return child;
    for (;;)
        act();
}

void stop(const std::vector<pid_t> &programs)
{
    for (const pid_t program : programs) {
        kill(program, SIGKILL);
        waitpid(program, nullptr, 0);
    }
}

// --- misbehaviour: each leaves its connection to the daemon in another way -------------------------------------------

void read_no_answers()
{
    const UniqueFd fd = connect_to_daemon();
    while (ask(fd.get(), Op::kRead, 4096))
        ;
}

void send_garbage()
{
    const UniqueFd fd = connect_to_daemon();
    static uint32_t state = 1;
    for (int i = 0; i < 50; ++i) {
        uint32_t words[64];
        for (uint32_t &word : words)
            word = state = state * 1664525 + 1013904223;
        words[0] %= 16;
        if (words[0] == static_cast<uint32_t>(Op::kControl))
            continue; // a command may reset what others use
        words[1] %= 64;
        send(fd.get(), words, sizeof words, MSG_NOSIGNAL | MSG_DONTWAIT);
        recv(fd.get(), words, sizeof words, MSG_DONTWAIT);
    }
}

void send_half_a_message()
{
    const UniqueFd fd = connect_to_daemon();
    send(fd.get(), "half", 4, MSG_NOSIGNAL);
    char byte;
    recv(fd.get(), &byte, 1, 0);
}

// Also what a daemon must not count twice.
void hold_twice()
{
    const UniqueFd fd = connect_to_daemon();
    ask(fd.get(), Op::kHold);
    ask(fd.get(), Op::kHold);
    usleep(1000);
}

// --- measurement -----------------------------------------------------------------------------------------------------

pid_t daemon_process()
{
    const UniqueFd fd = connect_to_daemon();
    ucred peer{};
    socklen_t length = sizeof peer;
    getsockopt(fd.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length);
    return peer.pid;
}

long memory_kib(pid_t process)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string word; status >> word;)
        if (word == "RssAnon:") {
            long kib = 0;
            status >> kib;
            return kib;
        }
    return -1;
}

// Reads a register `count` times. Returns the longest time of a read.
Clock::duration longest_access(int count)
{
    const UniqueFd fd{open(kRegisters, O_RDWR | O_CLOEXEC)};
    Clock::duration longest{};
    char bytes[4];
    for (int i = 0; i < count; ++i) {
        const auto begin = Clock::now();
        if (pread(fd.get(), bytes, sizeof bytes, 0) != sizeof bytes)
            return Clock::duration::max();
        longest = std::max(longest, Clock::now() - begin);
    }
    return longest;
}

void expect_prompt_answers(const std::string &beside)
{
    const auto longest = longest_access(2000);
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(longest).count();
    check(longest < kMostWait,
          "beside " + beside + ": the longest of 2000 accesses took " + std::to_string(us) + " us");
}

void serve_many_programs()
{
    std::vector<pid_t> programs;
    for (int i = 0; i < kPrograms; ++i)
        programs.push_back(start([] {
            std::vector<UniqueFd> connections;
            for (int n = 0; n < kConnectionsEach; ++n)
                connections.push_back(connect_to_daemon());
            for (;;)
                for (const UniqueFd &connection : connections) {
                    if (!exchange(connection.get()))
                        abort();
                    usleep(20000);
                }
        }));
    usleep(500000);
    expect_prompt_answers("64 programs with 1024 connections");
    int ended = 0;
    for (const pid_t program : programs)
        ended += waitpid(program, nullptr, WNOHANG) != 0;
    check(ended == 0, "every program gets its answers");
    stop(programs);
}

void bear_misbehaviour()
{
    const std::pair<const char *, void (*)()> kinds[] = {{"a program that does not read its answers", read_no_answers},
                                                         {"garbage", send_garbage},
                                                         {"half messages", send_half_a_message},
                                                         {"a program that holds the board twice", hold_twice}};
    for (const auto &[name, act] : kinds) {
        const std::vector<pid_t> programs{start(act), start(act)};
        usleep(200000);
        expect_prompt_answers(name);
        stop(programs);
    }
}

// Every program can write to the page. Programs believe it, the daemon does not.
void distrust_the_page()
{
    const UniqueFd file{open((private_folder() + "/page").c_str(), O_RDWR | O_CLOEXEC)};
    const UniqueFd connection = connect_to_daemon();
    vboard::Page good;
    const auto put = [&](const void *from) { return pwrite(file.get(), from, sizeof good, 0) == sizeof good; };
    bool served = pread(file.get(), &good, sizeof good, 0) == sizeof good;
    for (const int filling : {0x00, 0xff}) {
        std::vector<char> bad(sizeof good, static_cast<char>(filling));
        served = put(bad.data()) && served;
        for (int i = 0; i < 200; ++i) // also across some ticks of the frame
            served = exchange(connection.get()) && served;
    }
    served = put(&good) && served;
    check(served, "whatever the page holds, the daemon serves");
}

// At its limit of descriptors the daemon refuses, rests, and goes on when there is room again.
void meet_the_limit(pid_t daemon)
{
    rlimit before{};
    prlimit(daemon, RLIMIT_NOFILE, nullptr, &before);
    const rlimit few{64, before.rlim_max};
    prlimit(daemon, RLIMIT_NOFILE, &few, nullptr);
    std::vector<UniqueFd> connections;
    int refused = 0;
    for (int i = 0; i < 100; ++i) {
        connections.push_back(connect_to_daemon());
        refused += !exchange(connections.back().get());
    }
    check(refused > 0 && exchange(connections.front().get()),
          "at its limit of descriptors the daemon serves whom it has");
    const auto ticks = [&] {
        std::ifstream file("/proc/" + std::to_string(daemon) + "/stat");
        std::string word;
        long sum = 0;
        for (int i = 1; file >> word && i <= 15; ++i)
            sum += i >= 14 ? std::stol(word) : 0;
        return sum;
    };
    const long start_ticks = ticks();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    check(ticks() - start_ticks < 50, "and rests");
    connections.clear();
    prlimit(daemon, RLIMIT_NOFILE, &before, nullptr);
    check(exchange(connect_to_daemon().get()), "and goes on");
}

// Exchanges of each kind that could leave something behind.
void repeat(long exchanges)
{
    const UniqueFd fd = connect_to_daemon();
    for (long i = 0; i < exchanges; i += 5) {
        for (int n = 0; n < 3; ++n)
            exchange(fd.get());
        const UniqueFd alarm{open(kAlarm, O_RDONLY | O_CLOEXEC)};
        char text[8];
        if (read(alarm.get(), text, sizeof text) <= 0)
            check(false, "reading an alarm");
    }
}

void keep_memory_flat(pid_t daemon, long exchanges)
{
    repeat(exchanges / 4);
    const long before = memory_kib(daemon);
    repeat(exchanges);
    const long growth = memory_kib(daemon) - before;
    check(before > 0 && growth < kMostGrowthKiB, "memory grew by " + std::to_string(growth) + " KiB in " +
                                                     std::to_string(exchanges) + " exchanges, from " +
                                                     std::to_string(before) + " KiB");
}

} // namespace

int main(int argc, char **argv)
{
    const long exchanges = argc > 1 ? atol(argv[1]) : 0;
    signal(SIGPIPE, SIG_IGN);
    const auto begin = Clock::now();
    const pid_t daemon = daemon_process();
    serve_many_programs();
    bear_misbehaviour();
    distrust_the_page();
    meet_the_limit(daemon);
    keep_memory_flat(daemon, exchanges);
    check(kill(daemon, 0) == 0, "the daemon lives");
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - begin).count();
    printf("%d points, %d failures, %ld s\n%d passed, %d failed\n", g_passed + g_failed, g_failed,
           static_cast<long>(seconds), g_passed, g_failed);
    return g_failed != 0;
}
