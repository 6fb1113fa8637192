// System-information store. The application may replace all three calls; the library itself also calls them through the
// dynamic symbols.
#include <ddal/sysinfo.h>

#include <cerrno>
#include <cinttypes>
#include <ddal/common.h>
#include <optional>

#include "core/atomic_file.h"
#include "core/directory.h"
#include "core/log.h"
#include "core/stream.h"
#include "core/sysinfo_file.h"
#include "core/text.h"

using namespace ddal::core;

namespace {

constexpr const char *kDirectory = "/flash/config";
constexpr mode_t kDirectoryMode = 0755;
constexpr const char *kFile = "/flash/config/sysinfo";
constexpr const char *kHeading = "# System information: category.key.key2 = value\n";

bool put(FILE *to, std::string_view text)
{
    return text.empty() ||
           write_stream(to, text.data(), text.size()) == text.size(); // an empty view may have a null address
}

bool put_item(FILE *to, const SysinfoKey &key, uint64_t value, std::string_view tail)
{
    char item[80];
    const int length = ddal_common_scnprintf(item, sizeof item, "%" PRIu32 ".%" PRIu32 ".%" PRIu32 " = %" PRIu64,
                                             key.category, key.key, key.key2, value);
    return put(to, {item, static_cast<size_t>(length)}) && put(to, tail) && put(to, "\n");
}

// Copies all lines with the item set to its new value. Returns false with errno after a failed write.
bool copy_with_item(SysinfoReader &from, FILE *to, const SysinfoKey &key, uint64_t value)
{
    bool stored = false;
    while (from.next()) {
        const bool ours = from.line().is(key);
        if (ours && stored)
            continue; // drops a second line of the item
        const bool copied = ours ? put_item(to, key, value, from.line().tail) : put(to, from.text()) && put(to, "\n");
        if (!copied)
            return false;
        stored |= ours;
    }
    if (from.number() == 0 && !put(to, kHeading))
        return false;
    return stored || put_item(to, key, value, {});
}

} // namespace

DDAL_WEAK int ddal_sysinfo_get_uint(uint32_t category, uint32_t key, uint32_t key2, uint64_t *value)
{
    if (!value)
        return log_error(-EINVAL, "system information buffer is NULL\n");
    const AtomicFile file{kFile, "r"};
    if (!file)
        return errno == ENOENT ? -ENOENT : log_errno("can't open %s: %m\n", kFile);

    SysinfoReader reader{file.reader()};
    std::optional<uint64_t> found;
    while (reader.next()) {
        if (reader.line().is({category, key, key2}))
            found = reader.line().value;
    }
    if (reader.error() != 0)
        return log_error(reader.error(), "can't read %s: %d\n", kFile, reader.error());
    if (!found)
        return -ENOENT;
    *value = *found;
    return 0;
}

DDAL_WEAK int ddal_sysinfo_set_uint(uint32_t category, uint32_t key, uint32_t key2, uint64_t value)
{
    int result = ddal_common_mkdir_p(kDirectory, kDirectoryMode);
    if (result != 0)
        return log_error(result, "can't create %s: %d\n", kDirectory, result);
    AtomicFile file{kFile, "w"};
    if (!file)
        return log_errno("can't open %s: %m\n", kFile);

    SysinfoReader reader{file.reader()};
    if (!copy_with_item(reader, file.writer(), {category, key, key2}, value))
        return log_errno("can't write %s: %m\n", kFile);
    if (reader.error() != 0)
        return log_error(reader.error(), "can't read %s: %d\n", kFile, reader.error());
    result = file.commit();
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
