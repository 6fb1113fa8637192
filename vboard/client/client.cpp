#include "client/client.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>

#include "daemon/peer.h"
#include "page/protocol.h"

namespace vboard {

namespace {

std::filesystem::path own_board()
{
    const char *page = std::getenv("VBOARD_PAGE");
    if (!page)
        throw ClientError("no board named; give --board DIR, or run inside \"vboard run\"");
    return std::filesystem::path(page).parent_path().parent_path();
}

} // namespace

Client::Client(const std::filesystem::path &directory) : directory_(directory.empty() ? own_board() : directory)
{
    const std::filesystem::path path = directory_ / ".vboard/socket";
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    if (path.native().size() >= sizeof name.sun_path)
        throw ClientError("the board directory's path is too long: " + directory_.string());
    std::memcpy(name.sun_path, path.c_str(), path.native().size() + 1);
    socket_ = UniqueFd{socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)};
    if (connect(socket_.get(), reinterpret_cast<sockaddr *>(&name), sizeof name) != 0)
        throw ClientError("no board is running in " + directory_.string() + "; start it with \"vboard run --board\"");
    if (!is_trusted_local_peer(socket_.get()))
        throw ClientError("the board in " + directory_.string() + " belongs to another user");
    const UniqueFd fd{open((directory_ / ".vboard/page").c_str(), O_RDWR | O_CLOEXEC)};
    void *at = mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
    if (at == MAP_FAILED)
        throw ClientError("cannot map the page of the board in " + directory_.string());
    page_ = static_cast<Page *>(at);
    if (page_->magic != kPageMagic || page_->version != kPageVersion)
        throw ClientError("the board in " + directory_.string() + " runs under another version of vboard");
}

Client::~Client()
{
    if (page_)
        munmap(page_, sizeof(Page));
}

std::string Client::exchange(uint32_t op, const std::string &payload)
{
    RequestHeader request{};
    request.op = static_cast<Op>(op);
    request.id = next_id_++;
    iovec out[2] = {{&request, sizeof request}, {const_cast<char *>(payload.data()), payload.size()}};
    msghdr message{};
    message.msg_iov = out;
    message.msg_iovlen = payload.empty() ? 1 : 2;
    if (sendmsg(socket_.get(), &message, MSG_NOSIGNAL) < 0)
        throw ClientError("the board in " + directory_.string() + " has stopped");
    ReplyHeader reply{};
    std::string text(kMaxPayload, '\0');
    iovec in[2] = {{&reply, sizeof reply}, {text.data(), text.size()}};
    message.msg_iov = in;
    message.msg_iovlen = 2;
    if (recvmsg(socket_.get(), &message, 0) < static_cast<ssize_t>(sizeof reply))
        throw ClientError("the board in " + directory_.string() + " has stopped");
    text.resize(reply.length);
    if (reply.result < 0)
        throw ClientError(text);
    return text;
}

pid_t Client::daemon() const
{
    ucred peer{};
    socklen_t length = sizeof peer;
    return getsockopt(socket_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 ? peer.pid : 0;
}

std::string Client::run(const std::vector<std::string> &words)
{
    std::string payload;
    for (const std::string &word : words)
        payload += word + '\0';
    return exchange(static_cast<uint32_t>(Op::kControl), payload);
}

std::string Client::run(const std::string &line)
{
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string word; in >> word;)
        words.push_back(word);
    return run(words);
}

void Client::hold()
{
    exchange(static_cast<uint32_t>(Op::kHold), {});
}

} // namespace vboard
