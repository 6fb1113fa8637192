// Calls that an application makes all the time. Each runs in a section (section.h), whose instructions are counted.
// Prints a line for each section: its number, its limit of instructions (0: no limit) and its name.
//
// Runs under the emulator on bare_board, with nothing between the library and the kernel.
#include <ddal/clock.h>
#include <ddal/cma.h>
#include <ddal/fpga.h>
#include <ddal/osal.h>
#include <ddal/sfn.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <signal.h>
#include <unistd.h>

#include "bench/arm/section.h"
#include "dsp/cma_driver.h"
#include "vboard/shim/counter_trap.h"

namespace {

constexpr int kRepetitions = 5;
constexpr useconds_t kLongerThanAFrame = 25'000;
constexpr uint32_t kFirst = 0x00100000, kSecond = 0x00400000;

void answer(int, siginfo_t *, void *context)
{
    const auto counter = [] {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        return vboard::counts_of(now.tv_sec, now.tv_nsec);
    };
    if (!vboard::answer_counter_trap(*static_cast<ucontext_t *>(context), counter))
        signal(SIGILL, SIG_DFL);
}

// Runs before the library's constructor, which checks the counter's frequency.
void install(int, char **, char **)
{
    struct sigaction action {};
    action.sa_sigaction = answer;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGILL, &action, nullptr);
}
__attribute__((used, section(".preinit_array"))) void (*const kInstall)(int, char **, char **) = install;

int failures;

// Counts the instructions of `call`. The first calls resolve symbols and fill caches, so two uncounted calls come
// first.
template <int number, typename Call>
void count(const char *name, unsigned limit, Call call)
{
    printf("%d %u %s\n", number, limit, name);
    for (int i = 0; i < kRepetitions; ++i) {
        call();
        call();
        begin_section<number>();
        const bool good = call();
        end_section<number>();
        failures += !good;
    }
}

template <int number, typename Call>
void count_after_a_pause(const char *name, Call call)
{
    printf("%d 0 %s\n", number, name);
    for (int i = 0; i < kRepetitions; ++i) {
        usleep(kLongerThanAFrame);
        begin_section<number>();
        const bool good = call();
        end_section<number>();
        failures += !good;
    }
}

void *pointer(uint32_t address)
{
    return reinterpret_cast<void *>(static_cast<uintptr_t>(address));
}

} // namespace

// Serves the kernel's list of regions: a namespace cannot put a file into /proc.
extern "C" FILE *fopen64(const char *path, const char *mode)
{
    static char list[] = "header\n100000 A 100000 -\n400000 B 400000 -\n";
    if (strcmp(path, ddal::dsp::kCmaRegionList) == 0)
        return fmemopen(list, strlen(list), "r");
    using Open = FILE *(const char *, const char *);
    return reinterpret_cast<Open *>(dlsym(RTLD_NEXT, "fopen64"))(path, mode);
}

int main()
{
    uint64_t bcn = 0;
    uint32_t offset = 0, value = 0, virt_of_first = 0, virt_of_second = 0;
    timespec time{};
    if (ddal_cma_process_init() != 0 || ddal_cma_phy_to_virt(kFirst, &virt_of_first) != 0 ||
        ddal_cma_phy_to_virt(kSecond, &virt_of_second) != 0)
        return 1;

    count<0>("nothing", 0, [] { return true; });
    count<1>("ten instructions and a counter read, as a check of the count", 11, [&] {
        uint64_t counts = 0;
        asm volatile(".rept 10\n\tnop\n\t.endr\n\tmrrc p15, 1, %Q0, %R0, c14" : "=r"(counts));
        return true;
    });
    count<2>("ddal_sfn_get_bcn within a frame", 60, [&] { return ddal_sfn_get_bcn(&bcn, &offset, &time) == 0; });
    count<3>("ddal_clock_gettime within a frame", 80, [&] { return ddal_clock_gettime(CLOCK_MONOTONIC, &time) == 0; });
    count_after_a_pause<4>("ddal_sfn_get_bcn, first call in a frame",
                           [&] { return ddal_sfn_get_bcn(&bcn, &offset, &time) == 0; });
    count<5>("ddal_cma_phy_to_virt, region that is asked first", 0,
             [&] { return ddal_cma_phy_to_virt(kSecond + 64, &value) == 0; });
    count<6>("ddal_cma_phy_to_virt, second region", 0, [&] { return ddal_cma_phy_to_virt(kFirst + 64, &value) == 0; });
    count<7>("ddal_cma_virt_to_phy, second region", 0,
             [&] { return ddal_cma_virt_to_phy(virt_of_first + 64, &value) == 0; });
    count<8>("Osal_qmssVirtToPhy, region that is asked first", 0,
             [&] { return Osal_qmssVirtToPhy(pointer(virt_of_second)) == pointer(kSecond); });
    count<9>("ddal_fpga_read, the kernel's work left out", 0, [&] { return ddal_fpga_read(0, &value) == 1; });
    return failures == 0 ? 0 : 1;
}
