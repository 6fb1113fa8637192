// ddalctl doctor on boards with one planted defect each.
#include <gtest/gtest.h>

#include "tools/ddalctl.h"

using namespace testing_board;

namespace {

struct Defect {
    const char *type;
    const char *plant; // a shell line on the board; "ctl" is "vboard ctl"
    const char *path;
    const char *problem;
    const char *detail; // a part of it
};

#define TREE "/proc/device-tree/"
#define NETCP "/sys/class/net/eth1/device/of_node/netcp-interfaces/"
#define CPLD "/sys/class/cpld-usr/cpld-usr/"

// clang-format off
constexpr Defect kDefects[] = {
    {"mbo", "rm /dev/fpga_frame", "/dev/fpga_frame", "missing", ""},
    {"mbo", "ctl frame stop", "/dev/fpga_frame", "wrong content", "stands still"},
    {"mbo", "ctl frame invalid", "/dev/fpga_frame", "wrong content", "not valid"},
    {"mbo", "mv /dev/pps /dev/x", "/dev/pps/fpga-pps", "missing", "folder /dev/pps"},
    {"mbo", "chmod 444 /dev/emtimer", "/dev/emtimer", "wrong mode", "its mode 0444 lacks w"},
    {"mbo", "echo > " CPLD "jcstat", CPLD "jcstat", "wrong content", "decimal"},
    {"mbo", "printf '\\0\\0\\0\\11' > " TREE "board-identity/board-type", TREE "board-identity/board-type", "wrong content", "holds 9"},
    {"mbo", "rm " TREE "board-identity/board-type", TREE "board-identity/board-type", "missing", ""},
    {"mbo", "printf x > " TREE "cpus/numcores", TREE "cpus/numcores", "wrong content", "1 bytes"},
    {"mbo", "rm " TREE "module-identity/unit-id", TREE "module-identity/unit-id", "missing", ""},
    {"mbo", ": > " TREE "board-identity/fpga-type", TREE "board-identity/fpga-type", "wrong content", "nothing"},
    {"mbo", "printf 12345 > " NETCP "interface-3/local-mac-address", NETCP "interface-3/local-mac-address", "wrong content", "5 bytes"},
    {"type5", "rm -r " NETCP "interface-2", NETCP "interface-2/local-mac-address", "missing", "interface-2"},
    {"mbo", "rm -r " TREE "virtual-mac-pool", TREE "virtual-mac-pool/virtual-mac*/local-mac-address", "missing", ""},
    {"mbo", "rm -r /sys/kernel/debug/clk", "/sys/kernel/debug/clk/gem0/clk_rate", "missing", "folder /sys/kernel/debug/clk"},
    {"mbo", "chmod 555 /flash/config", "/flash/config", "wrong mode", "0555"},
    {"mbo", "echo 0.13 = 7 >> /flash/config/sysinfo", "/flash/config/sysinfo", "wrong content", "0.13 = 7"},
    {"mbo", "chmod -x /usr/bin/l2u-dtb", "/usr/bin/l2u-dtb", "wrong mode", "lacks x"},
    {"mbo", "ctl fpga set 0 0xffffffff", "/dev/fpga_usr", "wrong content", "all ones"},
    {"mbo", "head -c 60000 /dev/zero | tr '\\0' m > /sys/class/fpga_rf_pwr/fpga_rf_pwr/loop_cnt", "/sys/class/fpga_rf_pwr/fpga_rf_pwr/loop_cnt", "wrong content", "mmm"},
    {"mbo", "rm /dev/cpld-usr; mkdir /dev/cpld-usr", "/dev/cpld-usr", "wrong kind", "is a folder"},
    {"mbo", "rm /dev/fpga_rf2", "/dev/fpga_rf2", "missing", ""},
    {"mbo", "rm /sys/class/fpga_usr/fpga_usr/rp3_alarm", "/sys/class/fpga_usr/fpga_usr/rp3_alarm", "missing", ""},
    {"mbo", "rmdir /rom/etc/ssh", "/rom/etc/ssh/ssh_fail_login_delay", "missing", "/rom/etc/ssh"},
    {"mbo", "ln -sf /dev/pts/99 /dev/ttyFPGA3", "/dev/ttyFPGA3", "missing", "link leads"},
    {"mbo", "rm /sys/bus/i2c/devices/1-0051/eeprom", "/sys/bus/i2c/devices/1-0051/eeprom", "missing", ""},
    {"type5", "rm " CPLD "bh_sfp_diag", CPLD "bh_sfp_diag", "missing", ""},
    {"type8", "echo eth > /sys/class/net/eth3/dev_id", "/sys/class/net/eth3/dev_id", "wrong content", "hexadecimal"},
    {"type8", "rm " CPLD "bh_phy2_reset", CPLD "bh_phy2_reset", "missing", ""},
    {"type8", "ctl link service network leave", "/org/freedesktop/network1/link/_3", "not running", "org.freedesktop.network1"},
    {"mbo", "ctl link bus stop", "/com/broadcom/switch1/link/_3", "not running", "message bus"},
    {"mbo", "ctl fault add 'connect:*' errno=ECONNREFUSED nth=2 count=1", "5342", "not running", "refused"},
    {"mbo", "rm /dev/mapper/decrypted2", "/dev/mapper/decrypted2", "missing", ""},
    {"mbo", "echo /dev/sda1 /ffs/fs1 ext4 rw 0 0 >> /etc/mtab", "/etc/mtab", "wrong content", "instead of /dev/mapper/decrypted1"},
    {"mbo", "rm /usr/bin/luksapi", "/usr/bin/luksapi", "missing", ""},
    {"mbo", "rmdir /ffs/fs2", "/ffs/fs2", "missing", ""},
    {"mbo", "chmod 444 " TREE "uboot/netboot", TREE "uboot/netboot", "wrong mode", "0444"},
    {"mbo", "echo none > " CPLD "scr1", CPLD "scr1", "wrong content", "hexadecimal"},
    {"mbo", "rm /bin/update_u-boot.sh", "/bin/update_u-boot.sh", "missing", ""},
    {"mbo", "ctl fault add 'read:" CPLD "rf_led' errno=EIO", CPLD "rf_led", "unreadable", "Input/output"},
    {"mbo", "ctl fault add stat:/dev/mem errno=EACCES", "/dev/mem", "missing", "Permission denied"},
    {"mbo", "echo physical name size state > /proc/cma", "/proc/cma", "wrong content", "no region"},
    {"mbo", "ctl uptime silent", "/uptimed", "not running", "nothing"},
    {"mbo", "ctl uptime short", "/uptimed", "wrong content", "not 8"},
    {"mbo", "rm /etc/default/serviceuser/passwd", "/etc/default/serviceuser/passwd", "missing", ""},
    {"mbo", "sed -i s/pam_pwhistory/pam_unix/ /etc/pam.d/common-password", "/etc/pam.d/common-password", "wrong content", "pam_pwhistory"},
    {"mbo", "rm -r /ffs/run/etc/ssh", "/ffs/run/etc/ssh/p_sshd_config", "missing", "/ffs/run/etc/ssh"},
    {"mbo", ": > /etc/ssh/sshd_config", "/etc/ssh/sshd_config", "wrong content", "nothing"},
};
// clang-format on

Finished on_board(const std::string &type, const std::string &shell_line)
{
    return run_program({VBOARD_PROGRAM, "run", "--type", type, "--", "/bin/sh", "-c",
                        "ctl() { " VBOARD_PROGRAM " ctl \"$@\"; }\n" + shell_line});
}

} // namespace

TEST(DdalctlDoctor, FindsNothingOnAHealthyBoard)
{
    for (const char *type : {"mbo", "type5", "type8", "c5"}) {
        const Finished run = on_board(type, DDALCTL_PROGRAM " doctor 2>&1");
        EXPECT_EQ(run.status, 0) << type;
        EXPECT_TRUE(std::regex_match(run.out, std::regex("board type [589], [0-9]+ needs: no problem\n"))) << run.out;
    }
}

TEST(DdalctlDoctor, FindsThePlantedDefectAndBlamesNothingElse)
{
    static_assert(std::size(kDefects) >= 40);
    for (const Defect &defect : kDefects) {
        SCOPED_TRACE(defect.plant);
        const Finished run =
            on_board(defect.type, "{ " + std::string(defect.plant) + "; } >&2\nexec " DDALCTL_PROGRAM " --json doctor");
        EXPECT_EQ(run.status, 1) << run.err << run.out;
        Json found = Json::array();
        const Json document = document_of(run);
        for (const Json &row : document.at("needs")) {
            if (row.at("state") == "problem")
                found.push_back(row);
        }
        if (found.size() != 1) {
            ADD_FAILURE() << found.dump(1);
            continue;
        }
        EXPECT_EQ(found[0].at("path"), defect.path);
        EXPECT_EQ(found[0].at("problem"), defect.problem);
        EXPECT_NE(found[0].at("detail").dump().find(defect.detail), std::string::npos) << found[0].at("detail");
        EXPECT_TRUE(found[0].at("next").is_string());
    }
}
