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

int Model::open(const Node &, uint32_t, Descriptor)
{
    return -ENXIO;
}

std::string Model::text(const Node &)
{
    return {};
}

std::string Model::control(const Words &)
{
    throw ControlError("this model takes no commands");
}

uint64_t number_of(const std::string &word)
{
    size_t used = 0;
    uint64_t value = 0;
    try {
        value = std::stoull(word, &used, 0);
    } catch (const std::exception &) {
        used = 0;
    }
    if (word.empty() || used != word.size())
        throw ControlError("\"" + word + "\" is not a number");
    return value;
}

const std::string &word_at(const Words &words, size_t index, const char *what)
{
    if (index >= words.size())
        throw ControlError(std::string("missing ") + what);
    return words[index];
}

} // namespace vboard
