// ddalctl ffs: flash file systems.
#include <ddal/ffs.h>

#include "ddalctl/confirm.h"
#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/output_aside.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

constexpr Choice kFileSystems[] = {{"1", DDAL_FFS_1}, {"2", DDAL_FFS_2}, {"53", DDAL_FFS_1}, {"54", DDAL_FFS_2}};
constexpr Choice kTypes[] = {{"ext4", DDAL_FFS_TYPE_EXT4}, {"luks", DDAL_FFS_TYPE_LUKS_EXT4}};
constexpr Choice kLogical[] = {{"own", DDAL_FFS_OWN}, {"other", DDAL_FFS_OTHER}};

constexpr size_t kTypeSize = 17;

void add_mount_state(Report &report, uint32_t id)
{
    constexpr const char *kStates[] = {"not mounted", "read-only", "read-write"};
    uint32_t state = 0;
    require(DDAL(ddal_ffs_is_mounted)(id, &state));
    report.add("mounted", state != 0, kStates[state]);
    report.add_to_document("writable", state == 2);
}

// Reports a partition without a file system as missing, so that the list continues.
void add_type(Report &report, uint32_t id)
{
    char type[kTypeSize] = "";
    if (DDAL(ddal_ffs_get_fstype)(id, type) == 0)
        report.add("type", type);
    else
        report.add_missing("type");
}

void show(const Arguments &, Report &report)
{
    for (const uint32_t id : {DDAL_FFS_1, DDAL_FFS_2}) {
        Report &row = report.row("file-systems");
        row.add("id", id);
        add_type(row, id);
        add_mount_state(row, id);
    }
}

void type(const Arguments &arguments, Report &report)
{
    const uint32_t id = arguments.choice("FS", kFileSystems);
    char text[kTypeSize] = "";
    require(DDAL(ddal_ffs_get_fstype)(id, text));
    report.add("type", text);
}

uint32_t flags_of(const Arguments &arguments)
{
    return arguments.given("--write") ? DDAL_FFS_MOUNT_WRITABLE : 0;
}

void mount(const Arguments &arguments, Report &)
{
    const uint32_t id = arguments.choice("FS", kFileSystems);
    const uint32_t as = arguments.choice("TYPE", kTypes);
    require(quietly([&] { return DDAL(ddal_ffs_mount)(id, as, flags_of(arguments)); }));
}

void remount(const Arguments &arguments, Report &)
{
    const uint32_t id = arguments.choice("FS", kFileSystems);
    require(quietly([&] { return DDAL(ddal_ffs_remount)(id, flags_of(arguments)); }));
}

void umount(const Arguments &arguments, Report &)
{
    const uint32_t id = arguments.choice("FS", kFileSystems);
    require(quietly([&] { return DDAL(ddal_ffs_umount)(id); }));
}

std::string loss_of(uint32_t id)
{
    return "Delete everything on flash file system " + std::to_string(id) + " (/ffs/fs" +
           std::to_string(id - DDAL_FFS_1 + 1) + ")";
}

void format(const Arguments &arguments, Report &)
{
    const uint32_t id = arguments.choice("FS", kFileSystems);
    const uint32_t to = arguments.choice("TYPE", kTypes);
    confirm(arguments, loss_of(id));
    require(quietly([&] { return DDAL(ddal_ffs_format)(id, to); }));
}

void clean(const Arguments &arguments, Report &)
{
    const uint32_t id = arguments.choice("FS", kFileSystems);
    confirm(arguments, loss_of(id));
    require(quietly([&] { return DDAL(ddal_ffs_cleanfs)(id); }));
}

void physical(const Arguments &arguments, Report &report)
{
    const uint32_t which = arguments.choice("WHICH", kLogical);
    uint32_t id = 0;
    require(DDAL(ddal_ffs_get_physical_by_logical)(which, &id));
    report.add("id", id);
}

} // namespace

Family ffs_family()
{
    const Argument fs = one_of<kFileSystems>("FS", "1 or 2, or the physical id: 53 or 54");
    const Argument type_word = one_of<kTypes>("TYPE", "ext4 or luks (ext4 in an encrypted container)");
    const Argument writable = {"--write", Kind::flag, "read-write instead of read-only"};
    return {"ffs",
            "flash file systems",
            {
                {"show", "list the file systems with type and mount state", {}, show},
                {"type", "show the type of a file system", {fs}, type},
                {"mount", "mount a file system at its place below /ffs", {fs, type_word, writable}, mount},
                {"remount", "remount a file system read-only or read-write", {fs, writable}, remount},
                {"umount", "unmount a file system", {fs}, umount},
                {"format", "format a file system and delete everything on it", {fs, type_word, kYes}, format},
                {"clean",
                 "format a file system with its present type, mount it and create its standard directories",
                 {fs, kYes},
                 clean},
                {"physical",
                 "show the physical id of the file system of the running Linux, or of the other Linux",
                 {one_of<kLogical>("WHICH", "own or other")},
                 physical},
            }};
}

} // namespace ddalctl
