// Memories of the SFP modules.
#include <ddal/sfp.h>

#include <cerrno>
#include <fcntl.h>

#include <ddal/unit.h>

#include "core/transfer.h"
#include "core/unique_fd.h"
#include "platform/sfp_cage.h"

using ddal::core::UniqueFd;
using ddal::platform::find_sfp_cage;
using ddal::platform::SfpCage;

namespace ddal::platform {

static_assert(kSfpCagesOnI2c[0].id == DDAL_SFP_1 && kSfpCagesOnI2c[1].id == DDAL_SFP_2);
static_assert(kSfpCagesOnCpld[0].id == DDAL_SFP_1 && kSfpCagesOnCpld[1].id == DDAL_SFP_2);

const SfpCage *find_sfp_cage(uint32_t sfpId)
{
    if (sfpId != DDAL_SFP_1 && sfpId != DDAL_SFP_2)
        return nullptr;
    const SfpCage *cages = sfp_cages_are_on_i2c(ddal_unit_get_board()) ? kSfpCagesOnI2c : kSfpCagesOnCpld;
    return &cages[sfpId - DDAL_SFP_1];
}

} // namespace ddal::platform

namespace {

// Returns the result of a transfer that moved `moved` bytes and left its errno.
int transfer_result(ssize_t moved, uint32_t length)
{
    if (moved < 0)
        return -errno;
    return static_cast<size_t>(moved) == length ? 0 : -EFAULT;
}

} // namespace

int ddal_sfp_memory_read(uint32_t sfpId, uint32_t memory, uint32_t offset, void *buffer, uint32_t length)
{
    if (memory != DDAL_SFP_MEMORY_ID && memory != DDAL_SFP_MEMORY_DIAGNOSTICS)
        return -EINVAL;
    const SfpCage *cage = find_sfp_cage(sfpId);
    if (!cage)
        return -EINVAL;

    const UniqueFd fd{open(cage->memory[memory], O_RDONLY | O_CLOEXEC)};
    if (!fd)
        return -errno;
    return transfer_result(ddal_common_pread_all(fd.get(), buffer, length, offset), length);
}

int ddal_sfp_memory_write(uint32_t sfpId, uint32_t memory, uint32_t offset, const void *buffer, uint32_t length)
{
    if (memory == DDAL_SFP_MEMORY_ID)
        return -EROFS;
    if (memory != DDAL_SFP_MEMORY_DIAGNOSTICS)
        return -EINVAL;
    const SfpCage *cage = find_sfp_cage(sfpId);
    if (!cage)
        return -EINVAL;

    const UniqueFd fd{open(cage->memory[memory], O_WRONLY | O_CLOEXEC)};
    if (!fd)
        return -errno;
    return transfer_result(ddal_common_pwrite_all(fd.get(), buffer, length, offset), length);
}
