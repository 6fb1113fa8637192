// ddalctl aif: the radio data path between the SoC's antenna interface and the main FPGA.
#include <ddal/rp3.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <semaphore.h>
#include <sstream>
#include <string>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

constexpr size_t kTextSize = 2048;

// "0x00140900 <0x00000007> - RP1 and SFN status"
void add_line(Report &report, const std::string &line)
{
    uint32_t address = 0;
    uint32_t value = 0;
    int label = 0;
    if (sscanf(line.c_str(), "0x%8x <0x%8x> - %n", &address, &value, &label) != 2)
        return;
    Report &row = report.row("registers");
    row.add_hex("address", address);
    row.add_hex("value", value);
    row.add("label", line.substr(static_cast<size_t>(label)));
}

void validate(const Arguments &, Report &report)
{
    char text[kTextSize] = "";
    const int result = DDAL(ddal_rp3_validate_aif)("", 0, text, sizeof text);
    if (!*text)
        throw failure_of(result);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        add_line(report, line);
    report.add("healthy", result == 0, result == 0 ? "links healthy" : "links not healthy");
}

constexpr auto kWatched = std::chrono::seconds(1);
constexpr auto kLook = std::chrono::milliseconds(20);

// The semaphore of the link log, if a process has created it.
class LogSemaphore {
public:
    LogSemaphore() : semaphore_(sem_open(DDAL_RP3_LINK_LOG_SEMAPHORE, 0))
    {
        if (semaphore_ == SEM_FAILED && errno != ENOENT)
            throw failure_of(-errno);
    }
    LogSemaphore(const LogSemaphore &) = delete;
    LogSemaphore &operator=(const LogSemaphore &) = delete;
    ~LogSemaphore()
    {
        if (semaphore_ != SEM_FAILED)
            sem_close(semaphore_);
    }

    bool is_taken() const
    {
        int value = 1;
        return semaphore_ != SEM_FAILED && sem_getvalue(semaphore_, &value) == 0 && value == 0;
    }
    // A live process releases it within kWatched.
    bool stays_taken() const
    {
        const auto end = std::chrono::steady_clock::now() + kWatched;
        while (is_taken() && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(kLook);
        return is_taken();
    }
    void give_back() const
    {
        if (sem_post(semaphore_) != 0)
            throw failure_of(-errno);
    }

private:
    sem_t *semaphore_;
};

// Tries the file lock that a live writer holds.
class LogLock {
public:
    LogLock() : fd_(open(DDAL_RP3_LINK_LOG, O_RDONLY | O_NOFOLLOW | O_CLOEXEC)) {}
    LogLock(const LogLock &) = delete;
    LogLock &operator=(const LogLock &) = delete;
    ~LogLock()
    {
        if (fd_ >= 0)
            close(fd_);
    }

    // A missing log has no writer.
    bool taken() const { return fd_ < 0 || flock(fd_, LOCK_EX | LOCK_NB) == 0; }

private:
    int fd_;
};

void unlock(const Arguments &, Report &report)
{
    const LogSemaphore semaphore;
    bool freed = false;
    if (semaphore.is_taken()) {
        const LogLock lock;
        if (!lock.taken())
            throw Failure(-EBUSY, kOperationFailed, "a live process is writing to the link log; nothing was changed");
        freed = semaphore.stays_taken();
        if (freed)
            semaphore.give_back();
    }
    report.add("freed", freed,
               freed ? "the link log is free again; the process that held it has ended" : "the link log is not held");
}

void log(const Arguments &arguments, Report &)
{
    require(DDAL(ddal_rp3_validate_aif)(arguments.text("EVENT").c_str(), 1, nullptr, 0));
}

} // namespace

Family aif_family()
{
    return {"aif",
            "radio data path between the SoC's antenna interface and the main FPGA",
            {
                {"validate", "show the registers, and whether the links are healthy", {}, validate},
                {"log",
                 "append a snapshot of the registers to the board's link log",
                 {{"EVENT", Kind::text, "label of the entry"}},
                 log},
                {"unlock", "free the link log that a killed process has left locked; takes 1 s", {}, unlock},
            }};
}

} // namespace ddalctl
