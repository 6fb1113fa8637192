#include "daemon/channels.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <sys/socket.h>

namespace vboard {

void Channels::add(UniqueFd end)
{
    if (ends_.size() >= prune_at_) {
        std::erase_if(ends_, [](const UniqueFd &open) {
            pollfd state{open.get(), 0, 0};
            return poll(&state, 1, 0) > 0 && (state.revents & POLLHUP) != 0;
        });
        prune_at_ = std::max<size_t>(16, 2 * ends_.size());
    }
    ends_.push_back(std::move(end));
}

void Channels::send_to_all(std::span<const uint8_t> bytes, int flags)
{
    std::erase_if(ends_, [&](const UniqueFd &end) {
        const ssize_t n = ::send(end.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT | flags);
        return n < 0 && errno != EAGAIN && errno != EINTR;
    });
}

void Channels::send(std::span<const uint8_t> record)
{
    send_to_all(record, 0);
}

void Channels::signal()
{
    const uint8_t mark = 1;
    send_to_all({&mark, 1}, MSG_OOB);
}

} // namespace vboard
