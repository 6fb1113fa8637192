// Start-up of the switch SDK as a remote client, and attachment to the switch's user service.
#include "switch/broadcom/start.h"

#include <atomic>
#include <ctime>
#include <netinet/in.h>
#include <pthread.h>

#include <ddal/bcm.h>
#include <ddal/bcm_open.h>

#include "core/sleep.h"
#include "switch/broadcom/sdk_call.h"

namespace ddal::ethswitch {

namespace {

constexpr cpudb_key_t kServiceKey{{0, 0, 0, 0, 0, 0xFF}};
char kClientType[] = "client"; // the SDK takes writable texts
char kServiceKeyText[] = "0:0:0:0:0:ff";
char kSystemName[] = "os";
char kSystemValue[] = "unix";
constexpr uint32_t kTransportPort = 20567;

constexpr int kAtpCos = 0;
constexpr int kAtpVlan = 1;
constexpr uint32_t kAtpLearnPeers = 8;
constexpr uint32_t kAtpAllUnits = 0xFFFFFFFF;
constexpr uint32_t kAtpAllCos = 0x40000000;

constexpr useconds_t kAttachPauseUs = 100000;

pthread_once_t opening = PTHREAD_ONCE_INIT;
std::atomic<bool> switch_opened{false};

int start_sal(cpudb_s **)
{
    const int rv = sdk_result(sal_core_init);
    return rv != 0 ? rv : sdk_result(sal_appl_init);
}

int create_database(cpudb_s **database)
{
    *database = sdk_object(cpudb_create);
    return *database ? 0 : BCM_E_UNAVAIL;
}

int create_local_entry(cpudb_s **database)
{
    return sdk_object(cpudb_entry_create, *database, kServiceKey, 1) ? 0 : BCM_E_UNAVAIL;
}

int start_server(cpudb_s **)
{
    return sdk_result(atptrans_socket_server_start);
}

int set_cos_and_vlan(cpudb_s **)
{
    return sdk_result(atp_cos_vlan_set, kAtpCos, kAtpVlan);
}

int start_atp(cpudb_s **)
{
    return sdk_result(atp_start, kAtpLearnPeers, kAtpAllUnits, kAtpAllCos);
}

int update_atp_database(cpudb_s **database)
{
    return sdk_result(atp_db_update, *database);
}

int install_socket(cpudb_s **)
{
    return sdk_result(atptrans_socket_install, kServiceKey, uint32_t{INADDR_LOOPBACK}, kTransportPort);
}

int run_client(cpudb_s **)
{
    return broadcom_rpc_client_run();
}

int install_field_defaults(cpudb_s **)
{
    constexpr int (*kInstallers[])() = {
        ddal_bcm_ifp_install_default_field_groups,          ddal_bcm_ifp_install_default_untagged_entries,
        ddal_bcm_ifp_install_default_tagged_entries,        ddal_bcm_ifp_install_default_untagged_dstmac_entries,
        ddal_bcm_ifp_install_default_tagged_dstmac_entries, ddal_bcm_ifp_install_default_tunnel_drop_entry,
    };
    for (const auto install : kInstallers) {
        const int rc = install();
        if (rc != 0)
            return rc;
    }
    return 0;
}

struct Step {
    int (*run)(cpudb_s **database);
    const char *failure;
    bool with_sdk_text;
};

constexpr Step kSteps[] = {
    {start_sal, "cannot initialize SAL abstraction layer", false},
    {create_database, "cannot create CPU database", false},
    {create_local_entry, "cannot create CPU database entry", false},
    {start_server, "cannot start server socket", true},
    {set_cos_and_vlan, "cannot set ATP class of service and VLAN", true},
    {start_atp, "cannot start ATP", true},
    {update_atp_database, "cannot update ATP CPU database", true},
    {install_socket, "cannot install server socket", true},
    {run_client, "RPC client run error", false},
    {install_field_defaults, "Error installing default IFP field groups and entries", false},
};

time_t monotonic_seconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

} // namespace

int broadcom_rpc_client_run()
{
    int rv = sdk_result(bcm_rpc_start);
    if (rv != BCM_E_NONE)
        return log_error(DDAL_ERR_FAILURE, "cannot start Broadcom switch RPC: %s\n", sdk_text(rv));
    rv = sdk_result(bcm_rlink_start);
    if (rv != BCM_E_NONE)
        return log_error(DDAL_ERR_FAILURE, "cannot start Broadcom switch RLINK: %s\n", sdk_text(rv));

    const time_t limit = monotonic_seconds() + 1;
    rv = sdk_result(bcm_attach, kUnit, &kClientType[0], &kServiceKeyText[0], 0);
    while (rv == BCM_E_RESOURCE) {
        core::sleep_us(kAttachPauseUs);
        // kept: gives up while the limit lies ahead, and continues without end once it has passed
        if (limit > monotonic_seconds())
            return log_error(DDAL_ERR_FAILURE, "cannot attach to broadcom switch user service: %s\n", "timeout");
        rv = sdk_result(bcm_attach, kUnit, &kClientType[0], &kServiceKeyText[0], 0);
    }
    if (rv < 0)
        return log_error(DDAL_ERR_FAILURE, "cannot attach to broadcom switch user service: %s\n", sdk_text(rv));
    return 0;
}

void initialize_eth_switch()
{
    cpudb_s *database = nullptr;
    for (const Step &step : kSteps) {
        const int rv = step.run(&database);
        if (rv == 0)
            continue;
        if (step.with_sdk_text)
            log_line(LOG_ERR, "%s: %s\n", step.failure, sdk_text(rv));
        else
            log_line(LOG_ERR, "%s\n", step.failure);
        return;
    }
    switch_opened = true;
}

int open_bcm_switch()
{
    pthread_once(&opening, initialize_eth_switch);
    return switch_opened ? 0 : log_error(DDAL_ERR_FAILURE, "cannot open Broadcom switch\n");
}

} // namespace ddal::ethswitch

void sal_config_init_defaults()
{
    using namespace ddal::ethswitch;
    if (sdk_result(sal_config_set, &kSystemName[0], &kSystemValue[0]) != 0)
        log_line(LOG_ERR, "cannot configure SAL for Broadcom 10G switch\n");
}
