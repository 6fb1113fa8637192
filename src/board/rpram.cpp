// Start-up state word in restart-persistent memory.
#include <ddal/rpram.h>

#include <cerrno>
#include <ddal/common.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "core/log.h"
#include "core/unique_fd.h"

using ddal::core::minus_errno;
using ddal::core::UniqueFd;

namespace {

constexpr const char *kDirectory = "/ram/hwapi";
constexpr const char *kFile = "/ram/hwapi/isti";

} // namespace

int ddal_kvb_rpram_get_isti(uint32_t, uint32_t *value)
{
    const int result = ddal_common_read_u32val(value, kFile);
    if (result != -ENOENT)
        return result;
    *value = 0;
    return 0;
}

int ddal_kvb_rpram_set_isti(uint32_t value)
{
    if (mkdir(kDirectory, 0755) != 0 && errno != EEXIST)
        return minus_errno();
    const UniqueFd created{open(kFile, O_WRONLY | O_CREAT | O_CLOEXEC, 0644)};
    if (!created)
        return minus_errno();
    return ddal_common_write_u32val(&value, kFile);
}
