#include "attempt.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <pthread.h>
#include <semaphore.h>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>

#include "calls.h"
#include "dsp/osal_sections.h"
#include "injector.h"
#include "logic/rp3_log.h"
#include "memory.h"
#include "support/resources.h"

namespace campaign {

namespace {

constexpr int kTimerPeriod = 500;       // us
constexpr useconds_t kSettling = 20000; // us of the board: 1 ms of the machine

void reap(int)
{
    const int saved = errno;
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    errno = saved;
}

void handle(int signal, void (*handler)(int))
{
    struct sigaction action {};
    action.sa_handler = handler; // without SA_RESTART
    sigaction(signal, &action, nullptr);
}

void run_timer(int microseconds)
{
    const itimerval period{{0, microseconds}, {0, microseconds}};
    setitimer(ITIMER_REAL, &period, nullptr);
}

int count_threads()
{
    int count = 0;
    DIR *const tasks = opendir("/proc/self/task");
    while (tasks && readdir(tasks))
        ++count;
    if (tasks)
        closedir(tasks);
    return count - 2; // without "." and ".."
}

// Counts locks on files that this process holds, or that the kernel shows without a holder.
int count_locks()
{
    std::ifstream locks("/proc/locks");
    int count = 0;
    for (std::string line; std::getline(locks, line);) {
        std::istringstream words(line);
        std::string number, kind, advisory, access;
        int holder = 0;
        words >> number >> kind >> advisory >> access >> holder;
        count += holder == getpid() || holder == -1;
    }
    return count;
}

long size_of(const char *path)
{
    struct stat status {};
    return syscall(SYS_newfstatat, AT_FDCWD, path, &status, 0) == 0 ? static_cast<long>(status.st_size) : 0;
}

// Counts the semaphores of the library that cannot be taken.
int count_taken_semaphores()
{
    int count = 0;
    for (const char *const name :
         {ddal::dsp::kCppiSection, ddal::dsp::kQmssSection, ddal::dsp::kSaSection, ddal::logic::kLinkLogSemaphore}) {
        sem_t *const semaphore = sem_open(name, 0);
        int value = 1;
        if (semaphore != SEM_FAILED && sem_getvalue(semaphore, &value) == 0 && value <= 0)
            ++count;
        if (semaphore != SEM_FAILED)
            sem_close(semaphore);
    }
    return count;
}

// Waits until other threads of the library have released what the call has ended.
long settled_blocks(long usual)
{
    for (int i = 0; i < 200 && blocks_left() > usual; ++i)
        usleep(kSettling);
    return blocks_left();
}

// The preload library connects on the first transfer with a device, which may fail when descriptors are scarce.
void connect_to_board()
{
    uint32_t value = 0;
    const int fd = open("/dev/fpga_usr", O_RDONLY | O_CLOEXEC);
    (void)!pread(fd, &value, sizeof value, 0);
    close(fd);
}

// Sets the soft limit that leaves `number` descriptors free. The preload library's descriptors lie above it.
void leave_free(int number)
{
    int limit = 0;
    for (; number > 0; ++limit)
        number -= fcntl(limit, F_GETFD) < 0;
    while (fcntl(limit, F_GETFD) >= 0)
        ++limit;
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = static_cast<rlim_t>(limit);
    setrlimit(RLIMIT_NOFILE, &files);
}

void lift_limit()
{
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = 1024;
    setrlimit(RLIMIT_NOFILE, &files);
}

} // namespace

std::string Condition::text() const
{
    std::string words = name;
    if (number || name == "descriptors")
        words += ":" + std::to_string(number);
    return variant ? words + "." + std::to_string(variant) : words;
}

Attempt::Attempt(const Condition &condition, Kind kind, Report &report)
    : condition_(condition), kind_(kind), report_(report)
{
}

bool Attempt::succeeded() const
{
    return !report_.cancelled && is_success(kind_, report_.result);
}

void Attempt::output(const void *bytes, size_t length)
{
    length = std::min(length, sizeof report_.output - report_.length);
    memcpy(report_.output + report_.length, bytes, length);
    report_.length += length;
}

void Attempt::begin()
{
    const std::string &name = condition_.name;
    if (name == "sigchld-ignored")
        signal(SIGCHLD, SIG_IGN);
    else if (name == "sigchld-reaped")
        handle(SIGCHLD, reap);
    else if (name == "timer") {
        handle(SIGALRM, [](int) {});
        run_timer(kTimerPeriod);
    } else if (name == "closed") {
        for (int fd = 0; fd < 3; ++fd)
            if (condition_.number & 1 << fd)
                close(fd);
    } else if (name == "descriptors") {
        leave_free(condition_.number);
    }
    report_.trace_start = size_of(report_.trace_path);
    report_.stage = Report::kInside;
    watch_memory(name == "memory" ? condition_.number : 0, report_.place);
    if (name == "call" || name == "cancel")
        hand_over_calls(report_);
}

void Attempt::end()
{
    report_.stage = Report::kReturned;
    if (report_.occupied)
        close(report_.occupied - 1);
    report_.reached = unwatch_memory();
    if (condition_.name == "timer")
        run_timer(0);
    if (condition_.name == "descriptors")
        lift_limit();
    if (condition_.name == "sigchld-reaped" || condition_.name == "sigchld-ignored")
        signal(SIGCHLD, SIG_DFL);
    for (int fd = 0; condition_.name == "closed" && fd < 3; ++fd)
        if (condition_.number & 1 << fd && fcntl(fd, F_GETFD) >= 0)
            strcpy(report_.trouble, "a descriptor below 3 is left open");
}

// Runs the call on a separate thread. The thread is cancelled before the call or at a point within it, or the process
// exits during the call.
void Attempt::on_another_thread(const std::function<long()> &body)
{
    struct Shared {
        const std::function<long()> &body;
        Attempt &attempt;
    } shared{body, *this};
    report_.cancelled = true;
    pthread_t thread;
    const auto start = [](void *given) -> void * {
        auto &s = *static_cast<Shared *>(given);
        Report &report = s.attempt.report_;
        int old;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &old);
        if (s.attempt.condition_.name == "cancel-pending")
            pthread_cancel(pthread_self());
        report.caller = gettid();
        pthread_cleanup_push([](void *r) { static_cast<Report *>(r)->over = 1; }, &report);
        s.attempt.begin();
        pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &old);
        const long result = s.body();
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &old);
        report.result = result;
        report.cancelled = false;
        pthread_cleanup_pop(1);
        return nullptr;
    };
    if (const int rc = pthread_create(&thread, nullptr, start, &shared); rc != 0) {
        strcpy(report_.trouble, "the campaign could not start a thread");
        return;
    }
    if (condition_.name == "exit") {
        while (report_.stage < Report::kInside)
            sched_yield();
        usleep(static_cast<useconds_t>(condition_.number - 1) * 300);
        exit(0);
    }
    while (condition_.name == "cancel" && report_.cancel == 0 && report_.over == 0)
        sched_yield();
    if (report_.cancel == 1) {
        pthread_cancel(thread);
        report_.cancel = 2;
    }
    pthread_join(thread, nullptr);
    end();
}

void Attempt::call(const std::function<long()> &body)
{
    const std::string &name = condition_.name;
    if (name == "setup") { // stays without the call
        report_.cancelled = true;
        return;
    }
    if (name == "exit" || name == "cancel" || name == "cancel-pending") {
        on_another_thread(body);
        return;
    }
    if (name == "forked" || name == "second-call") {
        // The parent makes the call before the fork. The campaign judges the call of the child.
        body();
        between_();
        if (const pid_t child = name == "forked" ? fork() : 0; child > 0) {
            int status = 0;
            waitpid(child, &status, 0);
            _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
        }
    }
    begin();
    report_.result = body();
    end();
    if (name == "dlclose" && dlclose(library()) != 0)
        strcpy(report_.trouble, "dlclose failed");
}

void run_attempt(const Caller &caller, const Condition &condition, Report &report)
{
    connect_to_board();
    const std::set<int> before = testing_board::open_descriptors();
    const int threads = count_threads();
    const int locks = count_locks();
    Attempt attempt(condition, caller.kind, report);
    count_blocks(); // from here on: other threads may free later what the statements before the call have left
    caller.call(attempt);
    report.blocks = settled_blocks(report.usual_blocks);
    report.locks = count_locks() - locks + count_taken_semaphores();
    report.threads = count_threads() - threads;
    for (const int fd : testing_board::open_descriptors())
        report.descriptors += before.count(fd) == 0;
    report.stage = Report::kDone;
}

} // namespace campaign
