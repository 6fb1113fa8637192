// System-information store. All three calls may be replaced by the application; the library itself goes through the
// dynamic symbols, too.
#include <ddal/sysinfo.h>

#include <cerrno>
#include <cinttypes>
#include <ddal/common.h>

#include "core/atomic_file.h"
#include "core/directory.h"
#include "core/log.h"
#include "core/sysinfo_file.h"

using namespace ddal::core;

namespace {

constexpr const char *kDirectory = "/flash/config";
constexpr mode_t kDirectoryMode = 0755;
constexpr const char *kFile = "/flash/config/sysinfo";
constexpr const char *kHeading = "# System information: category.key.key2 = value\n";

void print_item(FILE *to, const SysinfoKey &key, uint64_t value, std::string_view tail)
{
    fprintf(to, "%" PRIu32 ".%" PRIu32 ".%" PRIu32 " = %" PRIu64, key.category, key.key, key.key2, value);
    fwrite(tail.data(), 1, tail.size(), to);
    fputc('\n', to);
}

// Copies all lines with the item set to its new value. Write errors are left to the stream's error flag.
int rewrite(FILE *from, FILE *to, const SysinfoKey &key, uint64_t value)
{
    SysinfoReader reader{from};
    bool stored = false;
    while (reader.next()) {
        if (!reader.line().is(key)) {
            fwrite(reader.text().data(), 1, reader.text().size(), to);
            fputc('\n', to);
        } else if (!stored) { // a second line of the item goes
            print_item(to, key, value, reader.line().tail);
            stored = true;
        }
    }
    if (reader.number() == 0)
        fputs(kHeading, to);
    if (!stored)
        print_item(to, key, value, {});
    return reader.error();
}

} // namespace

DDAL_WEAK int ddal_sysinfo_get_uint(uint32_t category, uint32_t key, uint32_t key2, uint64_t *value)
{
    if (!value)
        return log_error(-EINVAL, "system information buffer is NULL\n");
    const AtomicFile file{ddal_common_atomic_open(kFile, "r")};
    if (!file)
        return errno == ENOENT ? -ENOENT : log_errno("can't open %s: %m\n", kFile);

    SysinfoReader reader{ddal_common_atomic_reader(file.get())};
    bool found = false;
    while (reader.next()) {
        if (!reader.line().is({category, key, key2}))
            continue;
        *value = reader.line().value;
        found = true;
    }
    if (reader.error() != 0)
        return log_error(reader.error(), "can't read %s: %d\n", kFile, reader.error());
    return found ? 0 : -ENOENT;
}

DDAL_WEAK int ddal_sysinfo_set_uint(uint32_t category, uint32_t key, uint32_t key2, uint64_t value)
{
    int result = ddal_common_mkdir_p(kDirectory, kDirectoryMode);
    if (result != 0)
        return log_error(result, "can't create %s: %d\n", kDirectory, result);
    AtomicFile file{ddal_common_atomic_open(kFile, "w")};
    if (!file)
        return log_errno("can't open %s: %m\n", kFile);

    result = rewrite(ddal_common_atomic_reader(file.get()), ddal_common_atomic_writer(file.get()),
                     {category, key, key2}, value);
    if (result != 0)
        return log_error(result, "can't read %s: %d\n", kFile, result);
    result = ddal_common_atomic_close(file.release(), 1);
    if (result != 0)
        return log_error(result, "can't replace %s: %d\n", kFile, result);
    return 0;
}

DDAL_WEAK int ddal_sysinfo_update_devicetree_to_flash()
{
    char program[] = "l2u-dtb";
    char action[] = "update";
    char *argv[] = {program, action, nullptr};
    const int result = _ddal_common_shell_command("/usr/bin/l2u-dtb", argv);
    if (result == 0)
        return 0;
    return log_error(result > 0 ? DDAL_ERR_FAILURE : result, "l2u-dtb update failed: %d\n", result);
}
