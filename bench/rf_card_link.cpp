// Programming 64 KiB into the RF card over a line at its real speed, compared with the time of the bytes,
// acknowledgements and turnaround gaps at 11 bits per byte. Runs on a virtual board:
//     bin/vboard run --no-trace -- bench/rf_card_link
#include <ddal/bsl.h>
#include <ddal/ext.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <unistd.h>

#include "bench/row.h"
#include "client/client.h"

namespace {

constexpr uint32_t kBytes = 65536;
constexpr uint32_t kBlock = 250;
constexpr double kByteSeconds = 11.0 / 57600;
constexpr double kGapSeconds = 1.0 / 833;

using Time = std::chrono::steady_clock::time_point;

struct Stopwatch {
    Time start, end;

    static void watch(void *context, ddal_ext_rfcard_phase phase, uint32_t done, uint32_t total)
    {
        auto *self = static_cast<Stopwatch *>(context);
        if (phase == DDAL_EXT_RFCARD_PROGRAM)
            (done == 0 ? self->start : self->end) = std::chrono::steady_clock::now();
        if (phase == DDAL_EXT_RFCARD_PROGRAM && done == total)
            printf("%u bytes programmed\n", total);
    }
};

std::string make_image()
{
    std::string path = "/tmp/ddal-bench-XXXXXX";
    const int fd = mkstemp(path.data());
    if (fd < 0)
        exit(2);
    close(fd);
    std::ofstream out(path);
    out << "@9000\n";
    for (uint32_t i = 0; i < kBytes; ++i) {
        char token[4];
        snprintf(token, sizeof token, "%02X%c", i * 7919 >> 3 & 0xFF, i % 16 == 15 ? '\n' : ' ');
        out << token;
    }
    out << "q\n";
    return path;
}

// Adds up the packets of the blocks, an acknowledgement and a message of seven bytes for each, and one gap before the
// next packet.
double time_on_the_wire()
{
    constexpr uint32_t kAround = 3 + 4 + 2; // header and length, command and address, CRC
    constexpr uint32_t kAnswer = 1 + 7;
    const uint32_t packets = (kBytes + kBlock - 1) / kBlock;
    return (kBytes + packets * (kAround + kAnswer)) * kByteSeconds + packets * kGapSeconds;
}

} // namespace

int main()
{
    vboard::Client board;
    board.run("rf-card pace on");
    const std::string image = make_image();
    Stopwatch watch;
    uint32_t status = 0;
    if (!freopen("/dev/null", "w", stderr)) // the library's log
        return 2;
    const int result = ddal_ext_rfcard_upgrade(image.c_str(), 1, 0, Stopwatch::watch, &watch, &status);
    unlink(image.c_str());
    if (result != 0 || status != BSL_STATUS_SUCCESSFUL) {
        printf("the upgrade failed: result %d, status %u\n", result, status);
        return 1;
    }
    const double seconds = std::chrono::duration<double>(watch.end - watch.start).count();
    printf("programming: %.3f s, %.3f times the time on the wire (%.3f s)\n", seconds, seconds / time_on_the_wire(),
           time_on_the_wire());
    bench::print_row("firmware of the RF card programmed", "its time on the wire", seconds / time_on_the_wire(), 1.1);
    return 0;
}
