// Memories of the SFP modules.
#include <ddal/sfp.h>

#include <cerrno>
#include <fcntl.h>

#include "core/transfer.h"
#include "core/unique_fd.h"
#include "identity/boards.h"
#include "sfp/cage.h"

using ddal::core::UniqueFd;
using ddal::sfp::find_sfp_cage;
using ddal::sfp::kSfpMemorySize;
using ddal::sfp::SfpCage;

namespace ddal::sfp {

static_assert(kSfpCagesOnI2c[0].id == DDAL_SFP_1 && kSfpCagesOnI2c[1].id == DDAL_SFP_2);
static_assert(kSfpCagesOnCpld[0].id == DDAL_SFP_1 && kSfpCagesOnCpld[1].id == DDAL_SFP_2);

const SfpCage *find_sfp_cage(uint32_t sfpId)
{
    if (sfpId != DDAL_SFP_1 && sfpId != DDAL_SFP_2)
        return nullptr;
    const SfpCage *cages = ddal::identity::this_board().sfp_on_i2c ? kSfpCagesOnI2c : kSfpCagesOnCpld;
    return &cages[sfpId - DDAL_SFP_1];
}

} // namespace ddal::sfp

namespace {

// Opens a memory and calls `move` to transfer `length` bytes.
template <typename Move>
int transfer(uint32_t sfpId, uint32_t memory, int flags, uint32_t length, Move move)
{
    const SfpCage *cage = find_sfp_cage(sfpId);
    if (!cage)
        return -EINVAL;
    const UniqueFd fd{open(cage->memory[memory], flags | O_CLOEXEC)};
    if (!fd)
        return -errno;
    const ssize_t moved = move(fd.get());
    if (moved < 0)
        return -errno;
    return static_cast<size_t>(moved) == length ? 0 : -EFAULT;
}

} // namespace

int ddal_sfp_memory_read(uint32_t sfpId, uint32_t memory, uint32_t offset, void *buffer, uint32_t length)
{
    if (memory != DDAL_SFP_MEMORY_ID && memory != DDAL_SFP_MEMORY_DIAGNOSTICS)
        return -EINVAL;
    return transfer(sfpId, memory, O_RDONLY, length,
                    [=](int fd) { return ddal_common_pread_all(fd, buffer, length, offset); });
}

int ddal_sfp_memory_write(uint32_t sfpId, uint32_t memory, uint32_t offset, const void *buffer, uint32_t length)
{
    if (memory == DDAL_SFP_MEMORY_ID)
        return -EROFS;
    if (memory != DDAL_SFP_MEMORY_DIAGNOSTICS)
        return -EINVAL;
    const int result = transfer(sfpId, memory, O_WRONLY, length,
                                [=](int fd) { return ddal_common_pwrite_all(fd, buffer, length, offset); });
    // The driver takes the bytes up to the end of the memory and refuses the rest with a separate error.
    return result == -EFBIG && offset < kSfpMemorySize ? -EFAULT : result;
}
