// Start-up of the SDK in the order that the board's switch requires: every step with its arguments.
#include "switch/release.h"

#include <cstring>
#include <dlfcn.h>

#include "switch/broadcom/sdk.h"
#include "switch/exchange.h"

using vboard::client_library::call;

struct cpudb_s {
    cpudb_entry_s *local;
};
struct cpudb_entry_s {
    cpudb_key_t key;
};

namespace {

constexpr cpudb_key_t kServiceKey{{0, 0, 0, 0, 0, 0xFF}};
constexpr uint32_t kLoopback = 0x7F000001;
constexpr int kParameter = -4;
constexpr int kExists = -8;
constexpr int kBusy = -10;
constexpr int kNotInitialized = -17;

// Finds the library's hook. A program that loads the library itself, after this one, has it in a separate scope.
void (*configuration_hook())()
{
    constexpr const char *kName = "sal_config_init_defaults";
    void *hook = dlsym(RTLD_DEFAULT, kName);
    if (!hook) {
        void *const library = dlopen("libddal.so.1", RTLD_LAZY | RTLD_NOLOAD);
        hook = library ? dlsym(library, kName) : nullptr;
    }
    return reinterpret_cast<void (*)()>(hook);
}

// Start-up step that this process has reached.
enum class Stage { kNothing, kCore, kSal, kAtp, kRpc, kLink, kAttached };
Stage stage = Stage::kNothing;
bool configured = false;
bool installed = false;
cpudb_entry_s entry;
cpudb_s database;

int advance(const char *name, Stage from, Stage to)
{
    const auto answer = call(name, {});
    if (answer.result != 0)
        return answer.result;
    if (stage != from)
        return stage > from ? kBusy : kNotInitialized;
    stage = to;
    return 0;
}

char kTexts[][32] = {"Ok",
                     "Internal error",
                     "Out of memory",
                     "Invalid unit",
                     "Invalid parameter",
                     "Table empty",
                     "Table full",
                     "Entry not found",
                     "Entry exists",
                     "Operation timed out",
                     "Operation still running",
                     "Operation failed",
                     "Operation disabled",
                     "Invalid identifier",
                     "No resources for operation",
                     "Invalid configuration",
                     "Feature unavailable",
                     "Feature not initialized",
                     "Invalid port",
                     "Unknown error"};

} // namespace

char *_shr_errmsg[] = {kTexts[0],  kTexts[1],  kTexts[2],  kTexts[3],  kTexts[4],  kTexts[5],  kTexts[6],
                       kTexts[7],  kTexts[8],  kTexts[9],  kTexts[10], kTexts[11], kTexts[12], kTexts[13],
                       kTexts[14], kTexts[15], kTexts[16], kTexts[17], kTexts[18], kTexts[19]};

namespace vboard::client_library {

Release release = Release::k6_5_16;

const Sizes &sizes()
{
    // The old release's records for field rules are larger than the library's.
    static constexpr Sizes kSizes[] = {{168, 332, 12, 192, 896},
                                       {192, 340, 12, 228, 964},
                                       {232, 340, 12, 236, 1496},
                                       {232, 360, 12, 256, 1784},
                                       {164, 100, 8, 260, 1800}};
    return kSizes[static_cast<int>(release)];
}

bool is_attached()
{
    return stage == Stage::kAttached;
}

} // namespace vboard::client_library

int sal_core_init(void)
{
    const auto answer = call("sal_core_init", {});
    if (answer.result != 0)
        return answer.result;
    vboard::client_library::release = static_cast<vboard::client_library::Release>(answer.word(0));
    if (const auto hook = configuration_hook())
        hook();
    stage = Stage::kCore;
    return configured ? 0 : kNotInitialized;
}

int sal_appl_init(void)
{
    return advance("sal_appl_init", Stage::kCore, Stage::kSal);
}

int sal_config_set(char *name, char *value)
{
    if (call("sal_config_set", {}).result != 0)
        return -1;
    configured = strcmp(name, "os") == 0 && strcmp(value, "unix") == 0;
    return 0;
}

cpudb_s *cpudb_create(void)
{
    return call("cpudb_create", {}).result == 0 ? &database : nullptr;
}

cpudb_entry_s *cpudb_entry_create(cpudb_s *db, const cpudb_key_t key, int is_local)
{
    if (call("cpudb_entry_create", {}).result != 0 || db != &database || !is_local)
        return nullptr;
    entry.key = key;
    db->local = &entry;
    return &entry;
}

int atptrans_socket_server_start(void)
{
    return call("atptrans_socket_server_start", {}).result;
}

int atp_cos_vlan_set(int cos, int vlan)
{
    return call("atp_cos_vlan_set", {cos, vlan}).result;
}

int atp_start(uint32_t flags, uint32_t units, uint32_t rco_flags)
{
    const auto answer = call("atp_start", {flags, units, rco_flags});
    if (answer.result != 0)
        return answer.result;
    if (flags != 8 || units != 0xFFFFFFFF || rco_flags != 0x40000000)
        return kParameter;
    if (stage != Stage::kSal)
        return stage > Stage::kSal ? kBusy : kNotInitialized;
    stage = Stage::kAtp;
    return 0;
}

int atp_db_update(cpudb_s *db)
{
    const int result = call("atp_db_update", {}).result;
    return result != 0 ? result : db == &database && db->local ? 0 : kParameter;
}

int atptrans_socket_install(cpudb_key_t key, uint32_t address, uint32_t flags)
{
    const int result = call("atptrans_socket_install", {address, flags}).result;
    if (result != 0)
        return result;
    installed = memcmp(&key, &kServiceKey, sizeof key) == 0 && address == kLoopback && flags == 20567;
    return installed ? 0 : kParameter;
}

int bcm_rpc_start(void)
{
    return advance("bcm_rpc_start", Stage::kAtp, Stage::kRpc);
}

int bcm_rlink_start(void)
{
    return advance("bcm_rlink_start", Stage::kRpc, Stage::kLink);
}

int bcm_attach(int unit, char *type, char *subtype, int remote_unit)
{
    const int result = call("bcm_attach", {unit, remote_unit}).result;
    if (result != 0)
        return result;
    if (unit != 0 || remote_unit != 0 || strcmp(type, "client") != 0 || strcmp(subtype, "0:0:0:0:0:ff") != 0)
        return kParameter;
    if (stage == Stage::kAttached)
        return kExists;
    if (stage != Stage::kLink || !installed)
        return kNotInitialized;
    stage = Stage::kAttached;
    return unit;
}
