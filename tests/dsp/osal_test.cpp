// Critical sections, memory and logging of the driver adaptation. Each case runs in a child, because a process opens
// the semaphores once.
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <malloc.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

#include <ddal/cma.h>
#include <ddal/osal.h>
#include <ddal/osal_ext.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/in_child.h"
#include "support/waiting.h"

using namespace testing_board;

namespace {

using Lines = std::vector<std::string>;

struct Section {
    const char *name;
    void (*enter)();
    void (*exit)();
};

uint32_t key = 7; // never touched

const Section kBetweenProcesses[] = {
    {"CPPI", [] { Osal_cppiCsEnter(); }, [] { Osal_cppiCsExit(nullptr); }},
    {"QMSS", [] { Osal_qmssCsEnter(); }, [] { Osal_qmssCsExit(nullptr); }},
    {"SA", [] { Osal_saMtCsEnter(nullptr); }, [] { Osal_saMtCsExit(99); }},
};

const Section kBetweenThreads[] = {
    {"QMSS", [] { Osal_qmssMtCsEnter(); }, [] { Osal_qmssMtCsExit(nullptr); }},
    {"QMSS accumulator", [] { Osal_qmssAccCsEnter(); }, [] { Osal_qmssAccCsExit(nullptr); }},
    {"PA", [] { Osal_paMtCsEnter(&key); }, [] { Osal_paMtCsExit(99); }},
    {"SA", [] { Osal_saCsEnter(nullptr); }, [] { Osal_saCsExit(99); }},
};

// Counters without other protection than the sections, in memory that children share.
template <size_t N>
struct Counters {
    long value[N];
};

template <size_t N>
Counters<N> *shared_counters()
{
    void *at = mmap(nullptr, sizeof(Counters<N>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return static_cast<Counters<N> *>(at);
}

void add_up(const Section &section, long *counter, int times)
{
    for (int i = 0; i < times; ++i) {
        section.enter();
        *counter = *counter + 1;
        section.exit();
    }
}

TEST(OsalSections, LoseNoIncrementBetweenProcessesAndThreads)
{
    constexpr int kProcesses = 4, kThreads = 4, kTimes = 20'834; // 1,000,032 in all
    auto *const counters = shared_counters<3>();
    std::vector<pid_t> children;
    for (int process = 0; process < kProcesses; ++process)
        children.push_back(start_child([counters] {
            if (Osal_startup() != 0)
                return 1;
            std::vector<std::thread> threads;
            for (int thread = 0; thread < kThreads; ++thread)
                threads.emplace_back([counters] {
                    for (size_t i = 0; i < std::size(kBetweenProcesses); ++i)
                        add_up(kBetweenProcesses[i], &counters->value[i], kTimes);
                });
            for (std::thread &thread : threads)
                thread.join();
            return 0;
        }));
    for (const pid_t child : children)
        EXPECT_EQ(wait_for_child(child), 0);
    for (const long value : counters->value)
        EXPECT_EQ(value, long{kProcesses} * kThreads * kTimes);
    munmap(counters, sizeof *counters);
}

TEST(OsalSections, LoseNoIncrementBetweenThreads)
{
    constexpr int kThreads = 16, kTimes = 20'000;
    long counters[std::size(kBetweenThreads)] = {}, shared_by_qmss = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread)
        threads.emplace_back([&, thread] {
            for (size_t i = 0; i < std::size(kBetweenThreads); ++i)
                add_up(kBetweenThreads[i], &counters[i], kTimes);
            add_up(kBetweenThreads[thread % 2], &shared_by_qmss, kTimes); // one mutex under two names
        });
    for (std::thread &thread : threads)
        thread.join();
    for (const long value : counters)
        EXPECT_EQ(value, long{kThreads} * kTimes);
    EXPECT_EQ(shared_by_qmss, long{kThreads} * kTimes);
    EXPECT_EQ(key, 7u);
}

// A section between processes excludes another process; a section between threads does not.
TEST(OsalSections, ExcludeProcessesOrOnlyThreads)
{
    const auto child_gets_in = [](const Section &section) {
        const pid_t child = start_child([&] {
            if (Osal_startup() != 0)
                return 1;
            alarm(1);
            section.enter();
            section.exit();
            return 0;
        });
        return wait_for_child(child);
    };
    const auto outcome = in_child([&] {
        Lines lines{std::to_string(Osal_startup())};
        for (const Section &section : kBetweenProcesses) {
            section.enter();
            lines.push_back(std::string(section.name) + " " + std::to_string(child_gets_in(section)));
            section.exit();
            lines.push_back(std::string(section.name) + " " + std::to_string(child_gets_in(section)));
        }
        Osal_saCsEnter(nullptr);
        Osal_saMtCsEnter(nullptr); // two separate sections
        Osal_saMtCsExit(0);
        Osal_saCsExit(0);
        return lines;
    });
    EXPECT_EQ(outcome, (Lines{"0", "CPPI -14", "CPPI 0", "QMSS -14", "QMSS 0", "SA -14", "SA 0"})); // 14: SIGALRM
}

TEST(OsalSections, ContinueToWaitAfterASignal)
{
    const auto outcome = in_child([] {
        Osal_startup();
        LogWatch log;
        Osal_cppiCsEnter();
        Interrupted waiting([] {
            Osal_cppiCsEnter();
            return 0L;
        });
        Lines lines{waiting.blocks() ? "waits" : "came back"};
        waiting.interrupt();
        lines.push_back(waiting.blocks() ? "waits" : "came back");
        Osal_cppiCsExit(nullptr);
        lines.push_back(std::to_string(waiting.result()));
        Osal_cppiCsExit(nullptr);
        for (const std::string &line : log.take())
            lines.push_back(line);
        return lines;
    });
    EXPECT_EQ(outcome, (Lines{"waits", "waits", "0"}));
}

int value_of(const char *name)
{
    sem_t *const semaphore = sem_open(name, 0);
    if (semaphore == SEM_FAILED)
        return -errno;
    int value = 0;
    sem_getvalue(semaphore, &value);
    sem_close(semaphore);
    return value;
}

// As the header says, the section stays locked until the semaphore is removed and made anew.
TEST(OsalSections, StayLockedWhenAProcessDiesInside)
{
    constexpr const char *kNames[] = {"/OSAL-sem_cppi_cs", "/OSAL-sem_qmss_cs", "/OSAL-sem_sa_cs"};
    for (size_t i = 0; i < std::size(kNames); ++i) {
        const Section &section = kBetweenProcesses[i];
        const pid_t victim = start_child([&] {
            Osal_startup();
            section.enter();
            raise(SIGKILL);
            return 0;
        });
        EXPECT_EQ(wait_for_child(victim), -SIGKILL);
        EXPECT_EQ(value_of(kNames[i]), 0) << section.name;
        EXPECT_EQ(sem_unlink(kNames[i]), 0);
        const auto after = in_child([&] {
            Lines lines{std::to_string(Osal_startup())};
            section.enter();
            section.exit();
            return lines;
        });
        EXPECT_EQ(after, Lines{"0"});
        EXPECT_EQ(value_of(kNames[i]), 1) << section.name;
    }
}

TEST(OsalStartup, ReportsAMissingSemaphoreAndContinuesWithoutIt)
{
    EXPECT_EQ(outcome_in_child([] { return long{Osal_startup()} * 10 + Osal_startup() + ddal_ti_lld_ee_startup(); }),
              Lines{"0"});
    constexpr const char *kNames[] = {"CPPI", "QMSS", "SA"};
    for (int nth = 1; nth <= 3; ++nth) {
        const Fault fault("sem_open:* nth=" + std::to_string(nth) + " errno=EACCES");
        const std::string name = kNames[nth - 1];
        const auto outcome = outcome_in_child([nth] {
            const long result = ddal_ti_lld_ee_startup() * 10 - Osal_startup(); // opened once, even after a failure
            kBetweenProcesses[nth - 1].enter();
            kBetweenProcesses[nth - 1].exit();
            kBetweenProcesses[nth % 3].enter(); // the other sections work
            kBetweenProcesses[nth % 3].exit();
            return result;
        });
        const std::string operation[][2] = {{"Osal_cppiCsEnter", "Osal_cppiCsExit"},
                                            {"Osal_qmssCsEnter", "Osal_qmssCsExit"},
                                            {"Osal_saMtCsEnter", "Osal_saMtCsExit"}};
        EXPECT_EQ(
            outcome,
            (Lines{"-10011", "3 Osal_processStartup(): failure opening " + name + " semaphore, Permission denied",
                   "3 ddal_ti_lld_ee_startup: error Osal_startup (1)",
                   "3 " + operation[nth - 1][0] + "(): failure locking " + name + " semaphore, Invalid argument",
                   "3 " + operation[nth - 1][1] + "(): failure unlocking " + name + " semaphore, Invalid argument"}));
    }
}

TEST(OsalMemory, IncludesRoomForTheDriversAlignment)
{
    void *block = Osal_cppiMalloc(1);
    EXPECT_GE(malloc_usable_size(block), 64u);
    Osal_cppiFree(block, 1);
    EXPECT_EQ(Osal_cppiMalloc(UINT32_MAX - 62), nullptr); // size and room exceed 32 bits
    block = Osal_qmssMalloc(100);
    EXPECT_GE(malloc_usable_size(block), 100u);
    Osal_qmssFree(block, 100);
}

TEST(OsalLog, PassesTheDriversLines)
{
    LogWatch log; // the drivers pass literals as plain char pointers
    Osal_qmssLog(const_cast<char *>("queue %d of %s"), 5, "qmss");
    Osal_cppiLog(const_cast<char *>("queue %d of %s"), 6, "qmss");
    Osal_saLog(const_cast<char *>("queue %d of %s"), 7, "qmss");
    EXPECT_EQ(log.take(), (Lines{"4 queue 5 of qmss", "4 queue 6 of qmss", "4 queue 7 of qmss"}));
}

} // namespace
