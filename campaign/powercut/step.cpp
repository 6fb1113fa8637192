// Runs one operation that changes the board's files ("do NAME"), or prints the state that a start of the board finds
// ("look").
#include <cstdio>
#include <cstring>

#include <ddal/atboot.h>
#include <ddal/auth.h>
#include <ddal/boot.h>
#include <ddal/common.h>
#include <ddal/ffs.h>
#include <ddal/led.h>
#include <ddal/rp3.h>
#include <ddal/rpram.h>
#include <ddal/sshd.h>
#include <ddal/sysinfo.h>

namespace {

struct Step {
    const char *name;
    int (*run)();
};

int set_password()
{
    char reason[128];
    return ddal_auth_set_user_password("serviceuser", "correct-horse-7", reason, sizeof reason);
}

constexpr Step kSteps[] = {
    {"store", [] { return ddal_sysinfo_set_uint(0, 50, 1, 7); }},
    {"banner", [] { return ddal_sshd_set_banner("A banner of another length than the one before.\n"); }},
    {"ssh-option", [] { return ddal_sshd_set_parameter("ClientAliveInterval", "31", DDAL_SSHD_PERSIST); }},
    {"restrict", [] { return ddal_auth_set_restricted_root_access_state(DDAL_ROOT_ACCESS_RESTRICTED); }},
    {"lift", [] { return ddal_auth_set_restricted_root_access_state(DDAL_ROOT_ACCESS_UNRESTRICTED); }},
    {"keys", [] { return ddal_auth_reset_user_ssh_keys("serviceuser"); }},
    {"history", [] { return ddal_auth_set_password_history_len(12); }},
    {"no-history", [] { return ddal_auth_set_password_history_len(0); }},
    {"login-delay", [] { return ddal_auth_set_login_faildelay(2000123); }},
    {"password", set_password},
    {"password-reset", [] { return ddal_auth_reset_user_password("serviceuser"); }},
    {"isti", [] { return ddal_kvb_rpram_set_isti(0x01020304); }},
    {"boot-choice", [] { return ddal_boot_set_linux_active(DDAL_FFS_2); }},
    {"boot-settings",
     [] {
         int result = ddal_boot_set_lmp_netboot(1);
         result = result != 0 ? result : ddal_boot_set_uart(0);
         result = result != 0 ? result : ddal_boot_set_lmt(1);
         return result != 0 ? result : ddal_boot_set_isolcpus(3);
     }},
    {"boot-loader", [] { return ddal_boot_update_uboot("/fs1/u-boot.img"); }},
    {"leds", [] { return ddal_led_set_global_state(0, 1); }},
    {"link-log", [] { return ddal_rp3_validate_aif("power cut", 1, nullptr, 0); }},
    {"clean", [] { return ddal_ffs_cleanfs(DDAL_FFS_1); }},
};

void show(const char *name, int result, unsigned long long value = 0)
{
    printf("%s %d %llu\n", name, result, result == 0 ? value : 0);
}

template <typename Get>
void show_word(const char *name, Get get)
{
    uint32_t value = 0;
    const int result = get(&value);
    show(name, result, value);
}

void look()
{
    uint64_t item = 0;
    const int stored = ddal_sysinfo_get_uint(0, 50, 1, &item);
    show("store", stored, item);
    show_word("isti", [](uint32_t *value) { return ddal_kvb_rpram_get_isti(0, value); });
    show_word("root-access", ddal_auth_get_restricted_root_access_state);
    show_word("active", ddal_boot_get_linux_active);
    char program[] = "sshd";
    char option[] = "-t";
    char *argv[] = {program, option, nullptr};
    show("sshd", _ddal_common_shell_command("/usr/sbin/sshd", argv));
    show("atboot", ddal_atboot_run());
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 2 && strcmp(argv[1], "look") == 0) {
        look();
        return 0;
    }
    for (const Step &step : kSteps) {
        if (argc == 2 && strcmp(argv[1], "list") == 0)
            puts(step.name);
        if (argc == 3 && strcmp(argv[2], step.name) == 0) {
            const int result = step.run();
            printf("%s: %d\n", step.name, result);
            return result != 0;
        }
    }
    return argc != 2;
}
