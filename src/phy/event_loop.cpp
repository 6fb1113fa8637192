#include "phy/event_loop.h"

#include <atomic>
#include <ctime>
#include <pthread.h>
#include <unistd.h>

#include "core/log.h"
#include "core/mutex_lock.h"
#include "phy/gio_owner.h"
#include "phy/link_event.h"
#include "phy/threads.h"

using ddal::core::Mutex;
using ddal::core::MutexLock;

namespace ddal::phy {

Mutex registry_mutex;

namespace {

constexpr time_t kStartLimit = 1; // seconds

// The process that owns the links; 0 before the first registration. fork does not copy the loop's thread, and a lock
// that another thread held at the fork stays locked in the child.
std::atomic<pid_t> owner{0};

Mutex load_mutex;
pthread_once_t once = PTHREAD_ONCE_INIT;
std::atomic<const Gio *> gio{nullptr}; // load_mutex excludes a second loading
GMainLoop *main_loop;

GHashTable *registry DDAL_GUARDED_BY(registry_mutex);

Mutex start_mutex;
pthread_cond_t start_condition;
bool started DDAL_GUARDED_BY(start_mutex);

void set_registry(GHashTable *table)
{
    const RegistryLock lock;
    registry = table;
}

void create_start_condition()
{
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&start_condition, &attributes);
    pthread_condattr_destroy(&attributes);
}

int wait_for_start()
{
    const MutexLock lock(start_mutex);
    timespec limit{};
    clock_gettime(CLOCK_MONOTONIC, &limit);
    limit.tv_sec += kStartLimit;
    int rc = 0;
    while (!started && rc == 0)
        rc = pthread_cond_timedwait(&start_condition, start_mutex.native(), &limit);
    return rc;
}

} // namespace

// Locks nothing where event_registry answers null.
RegistryLock::RegistryLock() DDAL_UNCHECKED_LOCKING : is_ours_(!links_are_of_another_process())
{
    if (is_ours_)
        error_ = registry_mutex.lock();
}

RegistryLock::~RegistryLock() DDAL_UNCHECKED_LOCKING
{
    if (is_ours_ && error_ == 0)
        registry_mutex.unlock();
}

const Gio *loaded_gio()
{
    return gio;
}

GHashTable *event_registry()
{
    return links_are_of_another_process() ? nullptr : registry;
}

bool claim_links()
{
    pid_t nobody = 0;
    owner.compare_exchange_strong(nobody, getpid());
    return owner == getpid();
}

bool links_are_of_another_process()
{
    const pid_t process = owner;
    return process != 0 && process != getpid();
}

void initialize_phy_events()
{
    const Gio *const library = loaded_gio();
    UniqueHashTable table{library->hash_table_new_full(nullptr, nullptr, nullptr, release_registration)};
    main_loop = library->main_loop_new(nullptr, FALSE);
    if (!main_loop) {
        log_line(LOG_ERR, "GMainLoop initialization failed\n");
        return;
    }
    set_registry(table.get());
    create_start_condition();

    pthread_t thread;
    int rc = start_thread(&thread, event_loop_thread);
    if (rc != 0) {
        log_line(LOG_ERR, "pthread creation failed: %d\n", rc);
        set_registry(nullptr);
        return;
    }
    pthread_detach(thread);
    static_cast<void>(table.release()); // the loop uses it for the life of the process
    rc = wait_for_start();
    if (rc != 0)
        log_line(LOG_ERR, "failed waiting for event loop to start: %d\n", rc);
    else
        log_line(LOG_INFO, "event loop initialized for PID:%d\n", static_cast<int>(getpid()));
}

void *event_loop_thread(void *)
{
    const Gio *const library = loaded_gio();
    library->idle_add(event_loop_initialized_callback, nullptr);
    library->main_loop_run(main_loop);
    log_line(LOG_ERR, "event main loop stopped!\n");
    return nullptr;
}

int event_loop_initialized_callback(void *)
{
    const MutexLock lock(start_mutex);
    started = true;
    const int rc = pthread_cond_signal(&start_condition);
    if (rc != 0)
        log_line(LOG_ERR, "pthread_cond_signal failed: %d\n", rc);
    return FALSE;
}

namespace {

// A library that cannot be loaded now may be present the next time.
bool load_once()
{
    const MutexLock lock(load_mutex);
    if (!gio)
        gio = load_gio();
    return gio;
}

} // namespace

const Gio *running_event_loop()
{
    if (!load_once())
        return nullptr;
    pthread_once(&once, initialize_phy_events);
    const Gio *const library = loaded_gio();
    return main_loop && library->main_loop_is_running(main_loop) ? library : nullptr;
}

} // namespace ddal::phy
