#include "switch/field_entries.h"

#include <algorithm>

namespace ddal::ethswitch {

void FieldEntries::install(FieldGroup group)
{
    const std::lock_guard lock(mutex_);
    std::fill_n(installed_.begin() + group, kFieldGroupSize, true);
}

bool FieldEntries::is_installed(FieldGroup group, uint32_t port)
{
    const std::lock_guard lock(mutex_);
    return port < kFieldGroupSize && installed_[group + port];
}

void FieldEntries::set_queue(uint32_t port, std::optional<uint32_t> queue)
{
    const std::lock_guard lock(mutex_);
    queues_[port] = queue;
}

std::optional<uint32_t> FieldEntries::queue(uint32_t port)
{
    const std::lock_guard lock(mutex_);
    return queues_[port];
}

void FieldEntries::set_preserves_pcp(uint32_t port, bool preserves)
{
    const std::lock_guard lock(mutex_);
    preserves_pcp_[port] = preserves;
}

bool FieldEntries::preserves_pcp(uint32_t port)
{
    const std::lock_guard lock(mutex_);
    return preserves_pcp_[port];
}

FieldEntries &field_entries()
{
    static FieldEntries entries;
    return entries;
}

} // namespace ddal::ethswitch
