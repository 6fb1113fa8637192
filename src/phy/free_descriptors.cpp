#include "phy/free_descriptors.h"

#include <algorithm>
#include <sys/eventfd.h>

#include "core/unique_fd.h"

namespace ddal::phy {

bool descriptors_are_free(int count)
{
    core::UniqueFd taken[std::max(kToConnectBus, kToCreateProxy)];
    for (int i = 0; i < count; ++i) {
        taken[i].reset(eventfd(0, EFD_CLOEXEC));
        if (!taken[i])
            return false;
    }
    return true;
}

} // namespace ddal::phy
