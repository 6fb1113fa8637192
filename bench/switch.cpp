// Rules of the switch: SDK calls and time to add and remove one, and the frames per second that the virtual switch
// forwards with them. Runs on a virtual board:
//     bin/vboard run --no-trace -- bench/switch
#include <ddal/eth_switch.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>

#include "bench/row.h"
#include "client/client.h"

namespace {

constexpr uint32_t kSwitch = 2;
constexpr int kRounds = 200;
constexpr int kFrames = 400'000;

vboard::Client client;

double seconds_of(const std::function<void()> &work)
{
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

long calls_of(const std::function<int()> &operation)
{
    client.run("switch calls");
    if (operation() != 0)
        return -1;
    const std::string calls = client.run("switch calls");
    return std::count(calls.begin(), calls.end(), '\n');
}

void report_pair(const char *what, const std::function<int()> &add, const std::function<int()> &remove)
{
    const long added = calls_of(add);
    const long removed = calls_of(remove);
    int failed = 0;
    const double seconds = seconds_of([&] {
        for (int i = 0; i < kRounds; ++i)
            failed += add() != 0 || remove() != 0;
    });
    printf("%-22s add %ld calls, remove %ld calls, both %.0f us, %d failed\n", what, added, removed,
           seconds / kRounds * 1e6, failed);
}

void report_frames(const char *what)
{
    const double seconds = seconds_of([] {
        client.run("switch send 14 times=" + std::to_string(kFrames) + " dst=02:00:00:00:00:02 src=02:00:00:00:00:01");
    });
    printf("%-22s %.0f frames/s\n", what, kFrames / seconds);
    bench::print_row((std::string("a frame through the virtual switch ") + what).c_str(), "5 us",
                     seconds / kFrames / 5e-6, 1);
}

} // namespace

int main()
{
    const uint8_t group[6] = {0x01, 0, 0x5e, 0, 0, 1};
    report_pair(
        "tunnel", [] { return ddal_eth_switch_add_tunneling(kSwitch, 14, 18); },
        [] { return ddal_eth_switch_remove_tunneling(kSwitch, 14, 18); });
    report_pair(
        "loopback", [] { return ddal_eth_switch_enable_loopback(kSwitch, 14); },
        [] { return ddal_eth_switch_disable_loopback(kSwitch, 14); });
    report_pair(
        "address filter", [&] { return ddal_eth_switch_add_multicast_filter(kSwitch, 14, 20, group); },
        [&] { return ddal_eth_switch_remove_multicast_filter(kSwitch, 14, 20, group); });
    client.run("switch send 18 dst=02:00:00:00:00:01 src=02:00:00:00:00:02"); // the switch learns the address
    report_frames("without rules");
    if (ddal_eth_switch_add_tunneling(kSwitch, 20, 21) != 0 ||
        ddal_eth_switch_set_port_mapping_mode(kSwitch, 14, 1) != 0)
        return 1;
    report_frames("with rules");
    return 0;
}
