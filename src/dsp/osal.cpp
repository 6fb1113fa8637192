// Critical sections, memory and logging for the low-level drivers of the queue manager, packet DMA and accelerators.
#include <ddal/cma.h>
#include <ddal/osal.h>
#include <ddal/osal_ext.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <fcntl.h>
#include <pthread.h>
#include <semaphore.h>
#include <syslog.h>

#include "core/log.h"
#include "dsp/osal_log.h"
#include "dsp/osal_sections.h"

namespace ddal::dsp {

namespace {

constexpr mode_t kSemaphoreMode = 0600;
constexpr unsigned kSemaphoreFree = 1;
constexpr uint32_t kCppiSlack = 63; // lets the driver align a block to its 64-byte cache lines

// Null until Osal_startup has opened it.
sem_t *cppi_semaphore;
sem_t *qmss_semaphore;
sem_t *sa_semaphore;

// The drivers lock these with one call and unlock them with another one. They guard nothing of the library.
pthread_mutex_t pa_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t qmss_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t sa_mutex = PTHREAD_MUTEX_INITIALIZER;

pthread_once_t startup_once = PTHREAD_ONCE_INIT;

sem_t *open_semaphore(const char *name)
{
    sem_t *const semaphore = sem_open(name, O_CREAT, kSemaphoreMode, kSemaphoreFree);
    return semaphore == SEM_FAILED ? nullptr : semaphore;
}

// `operate` is sem_wait or sem_post. A semaphore that was never opened counts as an invalid one.
bool on_semaphore(int (*operate)(sem_t *), sem_t *semaphore)
{
    if (!semaphore) {
        errno = EINVAL;
        return false;
    }
    int result;
    do
        result = operate(semaphore);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

bool on_mutex(int (*operate)(pthread_mutex_t *), pthread_mutex_t *mutex)
{
    const int error = operate(mutex);
    if (error != 0)
        errno = error;
    return error == 0;
}

} // namespace

void Osal_processStartup(void)
{
    cppi_semaphore = open_semaphore(kCppiSection);
    if (!cppi_semaphore)
        osal_log("failure opening CPPI semaphore, %m");
    qmss_semaphore = open_semaphore(kQmssSection);
    if (!qmss_semaphore)
        osal_log("failure opening QMSS semaphore, %m");
    sa_semaphore = open_semaphore(kSaSection);
    if (!sa_semaphore)
        osal_log("failure opening SA semaphore, %m");
}

} // namespace ddal::dsp

using namespace ddal::dsp;

int Osal_startup(void)
{
    pthread_once(&startup_once, Osal_processStartup);
    return cppi_semaphore && qmss_semaphore && sa_semaphore ? 0 : 1; // kept: callers test for 1
}

int Osal_shutdown(void)
{
    return 0;
}

int ddal_ti_lld_ee_startup(void)
{
    const int result = Osal_startup();
    if (result != 0)
        return log_error(DDAL_ERR_FAILURE, "error Osal_startup (%d)\n", result);
    return 0;
}

void *Osal_cppiCsEnter(void)
{
    if (!on_semaphore(sem_wait, cppi_semaphore))
        osal_log("failure locking CPPI semaphore, %m");
    return nullptr;
}

void Osal_cppiCsExit(void *)
{
    if (!on_semaphore(sem_post, cppi_semaphore))
        osal_log("failure unlocking CPPI semaphore, %m");
}

void *Osal_qmssCsEnter(void)
{
    if (!on_semaphore(sem_wait, qmss_semaphore))
        osal_log("failure locking QMSS semaphore, %m");
    return nullptr;
}

void Osal_qmssCsExit(void *)
{
    if (!on_semaphore(sem_post, qmss_semaphore))
        osal_log("failure unlocking QMSS semaphore, %m");
}

// kept: for the security accelerator the "Mt" pair excludes other processes, the plain pair other threads
void Osal_saMtCsEnter(uint32_t *)
{
    if (!on_semaphore(sem_wait, sa_semaphore))
        osal_log("failure locking SA semaphore, %m");
}

void Osal_saMtCsExit(uint32_t)
{
    if (!on_semaphore(sem_post, sa_semaphore))
        osal_log("failure unlocking SA semaphore, %m");
}

void Osal_saCsEnter(uint32_t *)
{
    if (!on_mutex(pthread_mutex_lock, &sa_mutex))
        osal_log("failure locking SA mutex, %m");
}

void Osal_saCsExit(uint32_t)
{
    if (!on_mutex(pthread_mutex_unlock, &sa_mutex))
        osal_log("failure unlocking SA mutex, %m");
}

void *Osal_qmssMtCsEnter(void)
{
    if (!on_mutex(pthread_mutex_lock, &qmss_mutex))
        osal_log("failure locking QMSS mutex, %m");
    return nullptr;
}

void Osal_qmssMtCsExit(void *)
{
    if (!on_mutex(pthread_mutex_unlock, &qmss_mutex))
        osal_log("failure unlocking QMSS mutex, %m");
}

void Osal_paMtCsEnter(uint32_t *)
{
    if (!on_mutex(pthread_mutex_lock, &pa_mutex))
        osal_log("failure locking PA mutex, %m");
}

void Osal_paMtCsExit(uint32_t)
{
    if (!on_mutex(pthread_mutex_unlock, &pa_mutex))
        osal_log("failure unlocking PA mutex, %m");
}

// Accumulator functions of newer drivers. One process owns the accumulators, so the lock excludes only other threads.
void *Osal_qmssAccCsEnter(void)
{
    if (!on_mutex(pthread_mutex_lock, &qmss_mutex))
        osal_log("failure locking QMSS mutex, %m");
    return nullptr;
}

void Osal_qmssAccCsExit(void *)
{
    if (!on_mutex(pthread_mutex_unlock, &qmss_mutex))
        osal_log("failure unlocking QMSS mutex, %m");
}

void *Osal_qmssMemBarrier(uint32_t, void *desc)
{
    // The other side is hardware. A compiler may weaken a C++ fence that it proves useless between threads, but not
    // this builtin.
    __sync_synchronize();
    return desc;
}

void *Osal_cppiMalloc(uint32_t size)
{
    uint32_t with_slack;
    if (__builtin_add_overflow(size, kCppiSlack, &with_slack))
        return nullptr;
    return malloc(with_slack);
}

void *Osal_qmssMalloc(uint32_t size)
{
    return malloc(size);
}

void Osal_cppiFree(void *block, uint32_t)
{
    free(block);
}

void Osal_qmssFree(void *block, uint32_t)
{
    free(block);
}

void Osal_cppiLog(char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vsyslog(LOG_WARNING, format, arguments);
    va_end(arguments);
}

void Osal_qmssLog(char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vsyslog(LOG_WARNING, format, arguments);
    va_end(arguments);
}

void Osal_saLog(char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vsyslog(LOG_WARNING, format, arguments);
    va_end(arguments);
}

// Memory of the DMA regions is coherent with the hardware on this board, so there is no cache to write back or
// invalidate.
void Osal_cppiBeginMemAccess(void *, uint32_t) {}
void Osal_cppiEndMemAccess(void *, uint32_t) {}
void Osal_qmssBeginMemAccess(void *, uint32_t) {}
void Osal_qmssEndMemAccess(void *, uint32_t) {}
void Osal_paBeginMemAccess(void *, uint32_t) {}
void Osal_paEndMemAccess(void *, uint32_t) {}
void Osal_saBeginMemAccess(void *, uint32_t) {}
void Osal_saEndMemAccess(void *, uint32_t) {}
void Osal_saBeginScAccess(void *, uint32_t) {}
void Osal_saEndScAccess(void *, uint32_t) {}

uint16_t Osal_saGetProcId(void)
{
    return 0;
}

int Osal_saGetSysEndianMode(void)
{
    return 0;
}
