#include "daemon/model.h"

#include <cerrno>

namespace vboard {

int Model::read(const Node &, uint64_t, std::span<uint8_t>)
{
    return -EINVAL;
}

int Model::write(const Node &, uint64_t, std::span<const uint8_t>)
{
    return -EINVAL;
}

void Model::ioctl(const Node &, uint32_t, Bytes, Answer answer)
{
    answer.fail(ENOTTY);
}

int Model::open(const Node &, uint32_t, UniqueFd)
{
    return -ENXIO;
}

std::string Model::text(const Node &)
{
    return {};
}

} // namespace vboard
