// ddalctl boot: the boot loader, and the Linux installation that it starts.
#include <ddal/boot.h>
#include <ddal/ffs.h>

#include <cstring>

#include "ddalctl/confirm.h"
#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/output_aside.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

constexpr Choice kPartitions[] = {{"1", DDAL_FFS_1}, {"2", DDAL_FFS_2}, {"53", DDAL_FFS_1}, {"54", DDAL_FFS_2}};
constexpr Choice kStates[] = {{"off", 0}, {"on", 1}};
constexpr Choice kSettings[] = {{"netboot", 0}, {"uart", 1}, {"lmt", 2}};
constexpr size_t kVersionSize = 128;
constexpr size_t kLongestPath = 127; // bytes

template <typename Getter>
void add_number(Report &report, const char *name, Getter getter)
{
    uint32_t value = 0;
    if (getter(&value) == 0)
        report.add(name, value);
    else
        report.add_missing(name);
}

template <typename Getter>
void add_switch(Report &report, const char *name, Getter getter)
{
    uint32_t on = 0;
    if (getter(&on) == 0)
        report.add(name, on != 0, on ? "on" : "off");
    else
        report.add_missing(name);
}

void show(const Arguments &, Report &report)
{
    char version[kVersionSize] = "";
    if (DDAL(ddal_boot_get_uboot_version)(version) == 0)
        report.add("version", version);
    else
        report.add_missing("version");
    add_number(report, "copy", DDAL(ddal_boot_get_uboot_id));
    add_number(report, "active-partition", DDAL(ddal_boot_get_linux_active));
    uint32_t other = 0;
    if (DDAL(ddal_boot_get_linux_id)(&other) == 0)
        report.add_flag("active-is-running", other == 0);
    else
        report.add_missing("active-is-running");
    add_number(report, "boot-loader-error", DDAL(ddal_boot_get_uboot_err));
    add_number(report, "linux-error", DDAL(ddal_boot_get_linux_err));
    add_number(report, "reset-loop-count", DDAL(ddal_boot_get_reset_loop_count));
    add_switch(report, "netboot", DDAL(ddal_boot_get_lmp_netboot));
    add_switch(report, "uart", DDAL(ddal_boot_get_uart));
    add_switch(report, "lmt", DDAL(ddal_boot_get_lmt));
    uint32_t cpus = 0;
    if (DDAL(ddal_boot_get_isolcpus)(&cpus) == 0)
        report.add_hex("isolated-cpus", cpus);
    else
        report.add_missing("isolated-cpus");
}

void active(const Arguments &, Report &report)
{
    uint32_t partition = 0;
    require(DDAL(ddal_boot_get_linux_active)(&partition));
    report.add("active-partition", partition);
}

void switch_to(const Arguments &arguments, Report &)
{
    const uint32_t partition = arguments.choice("PARTITION", kPartitions);
    confirm(arguments, "Boot Linux from partition " + std::to_string(partition) + " at every reset");
    require(quietly([&] { return DDAL(ddal_boot_set_linux_active)(partition); }));
}

void update(const Arguments &arguments, Report &)
{
    const std::string &file = arguments.text("FILE");
    const size_t length = file.size() + (file.starts_with("/ffs") ? 0 : strlen("/ffs"));
    if (file.empty() || length > kLongestPath)
        throw WrongUse("FILE: a path of " + std::to_string(length) + " bytes with /ffs is outside 5 to " +
                       std::to_string(kLongestPath));
    confirm(arguments, "Replace the boot loader by " + file);
    require(quietly([&] { return DDAL(ddal_boot_update_uboot)(file.c_str()); }));
}

void set(const Arguments &arguments, Report &)
{
    const uint32_t setting = arguments.choice("SETTING", kSettings);
    const uint32_t on = arguments.choice("STATE", kStates);
    if (setting == 0)
        require(DDAL(ddal_boot_set_lmp_netboot)(on));
    else if (setting == 1)
        require(DDAL(ddal_boot_set_uart)(on));
    else
        require(quietly([&] { return DDAL(ddal_boot_set_lmt)(on); }));
}

void isolate(const Arguments &arguments, Report &)
{
    require(quietly([&] { return DDAL(ddal_boot_set_isolcpus)(arguments.number("MASK")); }));
}

void count(const Arguments &arguments, Report &)
{
    require(DDAL(ddal_boot_set_reset_loop_count)(arguments.number("COUNT")));
}

} // namespace

Family boot_family()
{
    return {"boot",
            "the boot loader",
            {
                {"show", "show settings and diagnostics", {}, show},
                {"active", "show the partition that the next reset boots", {}, active},
                {"switch",
                 "select the Linux installation to boot",
                 {one_of<kPartitions>("PARTITION", "1 or 2, or the physical id: 53 or 54"), kYes},
                 switch_to},
                {"update",
                 "install a boot-loader image",
                 {file("FILE", "path of the image; /ffs is added unless the path begins with it"), kYes},
                 update},
                {"set",
                 "change a setting; lmt alone survives a restart",
                 {one_of<kSettings>("SETTING", "netboot, uart or lmt"), one_of<kStates>("STATE", "on or off")},
                 set},
                {"isolate", "isolate CPUs from the scheduler", {{"MASK", Kind::number, "mask of CPUs"}}, isolate},
                {"reset-count",
                 "set the count of consecutive resets",
                 {{"COUNT", Kind::number, "0 to 255", false, 255}},
                 count},
            }};
}

} // namespace ddalctl
