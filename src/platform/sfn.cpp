// Radio frame number and frame-locked clocks. Reads the frame driver's page without locks and extrapolates from the
// processor's counter.
#include <ddal/clock.h>
#include <ddal/sfn.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "core/cpu_counter.h"
#include "core/log.h"
#include "core/unique_fd.h"
#include "platform/frame_driver.h"

using ddal::core::cpu_counter;
using namespace ddal::platform;

namespace {

struct Timestamp {
    uint32_t sec;
    uint32_t nsec;
};

struct Snapshot {
    uint64_t counter; // 0: no snapshot taken
    uint64_t bcn;
    Timestamp monotonic;
    Timestamp real;
};

// Stands for a sub-frame offset where there is none.
constexpr uint32_t kNoFrameInfo = UINT32_MAX;

constexpr uint32_t kNanosecondsPerSecond = 1'000'000'000;

// Set while the library is loaded, then constant for the life of the process.
int frame_fd = -1;
const FramePage *frame_page;

constinit thread_local Snapshot cache{};

// Acquires on every word, so that the sequence word is read again after the others. A fence would ensure that as well,
// but thread checkers do not understand it.
uint32_t load(const uint32_t &word)
{
    return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}

uint64_t load(const uint32_t &low, const uint32_t &high)
{
    return uint64_t{load(high)} << 32 | load(low);
}

Snapshot take_snapshot(const FramePage &page)
{
    for (;;) {
        const uint32_t sequence = load(page.sequence);
        if (sequence % 2 != 0)
            continue;
        const Snapshot snapshot{
            .counter = load(page.counter_low, page.counter_high),
            .bcn = load(page.bcn_low, page.bcn_high),
            .monotonic = {.sec = load(page.a_sec), .nsec = load(page.a_nsec)},
            .real = {.sec = load(page.b_sec), .nsec = load(page.b_nsec)},
        };
        if (load(page.sequence) == sequence)
            return snapshot;
    }
}

void advance(Timestamp &time, uint32_t sec, uint32_t nsec)
{
    time.sec += sec;
    time.nsec += nsec;
    if (time.nsec >= kNanosecondsPerSecond) {
        time.nsec -= kNanosecondsPerSecond;
        time.sec++;
    }
}

// Takes a fresh snapshot from the page and returns the sub-frame offset. Kept: 32-bit arithmetic, which wraps when the
// driver has stood still for 3.49 s.
[[gnu::noinline, gnu::cold]] uint32_t refresh(Snapshot &frame)
{
    frame = take_snapshot(*frame_page);
    if (frame.bcn == kNoFrameCount) {
        frame.counter = 0;
        return kNoFrameInfo;
    }

    const uint32_t units =
        (static_cast<uint32_t>(cpu_counter()) - static_cast<uint32_t>(frame.counter)) * kUnitsPerCount;
    const uint32_t frames = units / kUnitsPerFrame;
    if (frames == 0)
        return units;
    const uint32_t sec = units / kUnitsPerSecond;
    const uint32_t nsec = frames % kFramesPerSecond * kFrameNanoseconds;
    frame.bcn += frames;
    advance(frame.monotonic, sec, nsec);
    advance(frame.real, sec, nsec);
    return units % kUnitsPerFrame;
}

// Brings the thread's snapshot up to date and returns the sub-frame offset, or kNoFrameInfo.
[[gnu::always_inline]] inline uint32_t update(Snapshot &frame)
{
    const uint64_t elapsed = cpu_counter() - frame.counter;
    if (elapsed < kCountsPerFrame) [[likely]]
        return static_cast<uint32_t>(elapsed) * kUnitsPerCount;
    return refresh(frame);
}

[[gnu::always_inline]] inline void store(const Timestamp &time, timespec *ts)
{
    ts->tv_sec = static_cast<time_t>(time.sec);
    ts->tv_nsec = static_cast<long>(time.nsec);
}

// Stores the driver's time of the frame start plus the offset.
[[gnu::always_inline]] inline int store_clock(const Timestamp &frame_start, uint32_t offset, timespec *ts)
{
    constexpr uint64_t kNanosecondsPerUnit = 0xD0555555; // 1 / 1.2288 in units of 2^-32
    Timestamp now{.sec = frame_start.sec,
                  .nsec = frame_start.nsec + static_cast<uint32_t>(offset * kNanosecondsPerUnit >> 32)};
    if (now.nsec > kNanosecondsPerSecond) { // kept: exactly one second stays as it is
        now.nsec -= kNanosecondsPerSecond;
        now.sec++;
    }
    store(now, ts);
    return 0;
}

[[gnu::noinline, gnu::cold]] int system_clock(clockid_t clockid, timespec *ts)
{
    return clock_gettime(clockid, ts) == 0 ? 0 : -errno;
}

// Tells a person at a terminal how a program runs on another machine. Neither a pipe nor the system log gets this line.
void point_to_virtual_board()
{
    const int reason = errno;
    if (!isatty(fileno(stderr)) || !ddal::core::takes_text(stderr))
        return;
    errno = reason;
    fprintf(stderr, "%s: %m; run the program on a virtual board: vboard run --type mbo -- PROGRAM\n", kFrameNode);
}

} // namespace

namespace ddal::platform {

[[gnu::constructor]] void ddal_sfn_map_fpga_frame_shm()
{
    const uint32_t frequency = core::cpu_counter_frequency();
    if (frequency != core::kCpuCounterHz) {
        log_line(LOG_ERR, "Update ddal_sfn_get_bcn for different cpu counter frequency %u\n", frequency);
        abort();
    }

    core::UniqueFd fd{open(kFrameNode, O_RDONLY | O_CLOEXEC)};
    if (!fd) {
        log_line(LOG_ERR, "driver open failed: %m\n");
        point_to_virtual_board();
        abort();
    }

    void *page = mmap(nullptr, static_cast<size_t>(sysconf(_SC_PAGESIZE)), PROT_READ, MAP_SHARED, fd.get(), 0);
    if (page == MAP_FAILED) {
        fd.reset();
        log_line(LOG_ERR, "driver mmap failed: %m\n");
        abort();
    }
    frame_page = static_cast<const FramePage *>(page);
    frame_fd = fd.release(); // for the wait requests
}

} // namespace ddal::platform

int ddal_sfn_get_bcn(uint64_t *bcn, uint32_t *offset, struct timespec *ts)
{
    Snapshot &frame = cache;
    const uint32_t units = update(frame);
    if (units == kNoFrameInfo) [[unlikely]]
        return DDAL_ERR_NO_FRAME_INFO;
    if (bcn)
        *bcn = frame.bcn;
    if (offset)
        *offset = units;
    if (ts)
        store(frame.monotonic, ts);
    return 0;
}

int ddal_clock_gettime(clockid_t clockid, struct timespec *ts)
{
    if (clockid != CLOCK_MONOTONIC && clockid != CLOCK_REALTIME) [[unlikely]]
        return system_clock(clockid, ts);
    Snapshot &frame = cache;
    const uint32_t offset = update(frame);
    if (offset == kNoFrameInfo) [[unlikely]]
        return system_clock(clockid, ts);
    return store_clock(clockid == CLOCK_MONOTONIC ? frame.monotonic : frame.real, offset, ts);
}

int ddal_sfn_get(uint32_t *sfn, struct timespec *ts)
{
    if (!sfn)
        return -EINVAL;
    uint64_t bcn = 0;
    const int result = ddal_sfn_get_bcn(&bcn, nullptr, ts);
    if (result == 0)
        *sfn = static_cast<uint32_t>(bcn) & kSfnMax;
    return result;
}

int ddal_sfn_set(uint32_t sfn)
{
    if (sfn > kSfnMax)
        return log_error(-EINVAL, "SFN max = %d\n", static_cast<int>(kSfnMax));
    return -ENOSYS;
}

int ddal_sfn_wait_next(uint32_t *sfn, struct timespec *ts, unsigned long arg)
{
    if (ioctl(frame_fd, kFrameWaitNext, arg) < 0)
        return log_errno("ioctl failed: %m\n");
    return sfn ? ddal_sfn_get(sfn, ts) : 0;
}

int ddal_sfn_wait_for(uint32_t *sfn, struct timespec *ts)
{
    if (!sfn)
        return -EINVAL;
    uint32_t wanted = *sfn;
    if (ioctl(frame_fd, kFrameWaitFor, &wanted) < 0) {
        if (errno == EAGAIN)
            return DDAL_ERR_NO_FRAME_INFO;
        return log_errno("ioctl failed: %m\n");
    }
    return ddal_sfn_get(sfn, ts);
}

int ddal_sfn_wait_btsrtc_bcn_pair_at_frame(struct timespec *ts, uint64_t *bcn, unsigned long arg)
{
    const int result = ddal_sfn_wait_next(nullptr, nullptr, arg);
    if (result != 0)
        return result;
    Snapshot &frame = cache;
    if (update(frame) == kNoFrameInfo)
        return DDAL_ERR_NO_FRAME_INFO;
    if (ts)
        store(frame.real, ts);
    if (bcn)
        *bcn = frame.bcn;
    return 0;
}
