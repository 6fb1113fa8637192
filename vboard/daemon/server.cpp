#include "daemon/server.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <system_error>

#include "daemon/log.h"
#include "daemon/requests.h"

namespace vboard {

struct Server::Client {
    UniqueFd socket;
    bool holds = false;
    UniqueFd holder; // the process that holds the board, where the kernel names it
    std::map<uint32_t, Answer> waiting;
};

namespace {

constexpr size_t kMostWaiting = 64;     // requests of one client that a model has not answered
constexpr size_t kMostPositions = 4096; // those of the oldest sockets are forgotten first
constexpr rlim_t kDescriptors = 16384;

// The usual limit of 1024 descriptors is for programs.
void raise_descriptor_limit()
{
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    limit.rlim_cur = std::max(limit.rlim_cur, std::min(limit.rlim_max, kDescriptors));
    setrlimit(RLIMIT_NOFILE, &limit);
}

// The socket's queue bounds the answers that a client leaves unread. A client beyond it is cut off.
void send_reply(int fd, uint32_t id, int result, std::span<const uint8_t> bytes, int attached = -1)
{
    ReplyHeader header{id, result, static_cast<uint32_t>(bytes.size()), 0};
    iovec parts[2] = {{&header, sizeof header}, {const_cast<uint8_t *>(bytes.data()), bytes.size()}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = bytes.empty() ? 1 : 2;
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    if (attached >= 0) {
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        cmsghdr *entry = CMSG_FIRSTHDR(&message);
        entry->cmsg_level = SOL_SOCKET;
        entry->cmsg_type = SCM_RIGHTS;
        entry->cmsg_len = CMSG_LEN(sizeof(int));
        std::memcpy(CMSG_DATA(entry), &attached, sizeof attached);
    }
    // A client that has disconnected is noticed when its socket is read.
    if (sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT) >= 0 || errno != EAGAIN)
        return;
    log_line("a client is cut off: it does not read its answers");
    shutdown(fd, SHUT_RDWR);
}

// Notes that the preload library has refused a call on a node, for the developer who wonders about the errno.
void note_refusal(const Board &board, const RequestHeader &header, const Bytes &payload)
{
    const Node *node = board.node(header.node);
    std::string call;
    for (const uint8_t c : payload)
        if (call.size() < 24 && (std::isalnum(c) || c == '_'))
            call += static_cast<char>(c);
    log_line("refused: " + call + " on " + (node ? node->path : "?") + " by process " + std::to_string(header.pid) +
             ": " + std::strerror(static_cast<int>(header.request)));
}

Words words_of(const Bytes &payload)
{
    Words words;
    std::string word;
    for (const uint8_t c : payload) {
        if (c != 0) {
            word += static_cast<char>(c);
            continue;
        }
        words.push_back(word);
        word.clear();
    }
    return words;
}

} // namespace

Server::Server(Board &board) : board_(board)
{
    raise_descriptor_limit();
    UniqueFd listener{socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    const std::string path = board.private_path("socket");
    if (path.size() >= sizeof name.sun_path)
        throw std::runtime_error("the board directory's path is too long for a socket: " + path);
    std::memcpy(name.sun_path, path.c_str(), path.size() + 1);
    unlink(path.c_str());
    if (bind(listener.get(), reinterpret_cast<sockaddr *>(&name), sizeof name) != 0 ||
        listen(listener.get(), SOMAXCONN) != 0)
        throw std::system_error(errno, std::generic_category(), path);
    listener_ = Acceptor(std::move(listener));
    board_.loop().watch(listener_.descriptor(), [this] { accept_client(); });
}

Server::~Server()
{
    unlink(board_.private_path("socket").c_str());
}

void Server::accept_client()
{
    UniqueFd fd = listener_.accept();
    if (!fd)
        return;
    if (!is_trusted_local_peer(fd.get())) {
        log_line("a connection is refused: it comes from another user");
        return;
    }
    const int number = fd.get();
    auto client = std::make_shared<Client>();
    client->socket = std::move(fd);
    clients_[number] = client;
    board_.loop().watch(number, [this, number] { serve(number); });
}

void Server::drop(int fd)
{
    board_.loop().forget(fd);
    const auto found = clients_.find(fd);
    if (found == clients_.end())
        return;
    const auto client = found->second;
    clients_.erase(found);
    release(*client);
}

// A copy of the socket in another process must not keep the board when the process that holds it has ended.
void Server::hold(const std::shared_ptr<Client> &client)
{
    if (client->holds)
        return;
    client->holds = true;
    ++holders_;
    ucred peer{};
    socklen_t length = sizeof peer;
    if (getsockopt(client->socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0 || peer.pid <= 0)
        return;
    client->holder = UniqueFd{static_cast<int>(syscall(SYS_pidfd_open, peer.pid, 0))};
    if (client->holder)
        board_.loop().watch(client->holder.get(), [this, client] { release(*client); });
}

void Server::release(Client &client)
{
    if (!client.holds)
        return;
    client.holds = false;
    if (client.holder)
        board_.loop().forget(client.holder.get());
    if (--holders_ == 0 && stop_when_unheld_)
        board_.loop().stop();
}

void Server::serve(int fd)
{
    const auto client = clients_.at(fd);
    const ssize_t n = recv(fd, message_.data(), message_.size(), MSG_DONTWAIT);
    if (n < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (n < static_cast<ssize_t>(sizeof(RequestHeader))) {
        drop(fd);
        return;
    }
    RequestHeader header;
    std::memcpy(&header, message_.data(), sizeof header);
    try {
        handle(client, header, Bytes(message_.begin() + sizeof header, message_.begin() + n));
    } catch (const std::exception &error) {
        log_line(std::string("a request has failed: ") + error.what());
        send_reply(fd, header.id, -EIO, {});
    }
}

Answer Server::answer_for(const std::shared_ptr<Client> &client, uint32_t id)
{
    Answer answer([weak = std::weak_ptr<Client>(client), id](int result, std::span<const uint8_t> bytes) {
        const auto still = weak.lock();
        if (!still)
            return;
        still->waiting.erase(id);
        send_reply(still->socket.get(), id, result, bytes);
    });
    client->waiting.emplace(id, answer);
    return answer;
}

int Server::handle_transfer(const std::shared_ptr<Client> &client, const RequestHeader &header, const Bytes &payload)
{
    const Node *node = board_.node(header.node);
    Model *model = node ? board_.model_of(*node) : nullptr;
    if (!model)
        return -ENXIO;
    if (header.op == Op::kWrite)
        return model->write(*node, header.offset, payload);
    Bytes out(std::min(header.length, kMaxPayload));
    const int n = model->read(*node, header.offset, out);
    if (n >= 0)
        send_reply(client->socket.get(), header.id, n, std::span(out).first(static_cast<size_t>(n)));
    return n;
}

void Server::open_channel(const std::shared_ptr<Client> &client, const RequestHeader &header)
{
    const Node *node = board_.node(header.node);
    UniqueFd end;
    const int result = node ? board_.open_channel(*node, header.flags, end) : -ENXIO;
    send_reply(client->socket.get(), header.id, result, {}, result < 0 ? -1 : end.get());
}

void Server::read_text(const std::shared_ptr<Client> &client, const RequestHeader &header)
{
    const Node *node = board_.node(header.node);
    Model *model = node ? board_.model_of(*node) : nullptr;
    if (!model) {
        send_reply(client->socket.get(), header.id, -ENXIO, {});
        return;
    }
    if (!board_.has_given(header.flags) || (header.op == Op::kNotifySeek && header.offset > INT32_MAX)) {
        send_reply(client->socket.get(), header.id, -EINVAL, {});
        return;
    }
    uint64_t &position = positions_[header.flags];
    if (positions_.size() > kMostPositions && positions_.begin()->first != header.flags)
        positions_.erase(positions_.begin());
    if (header.op == Op::kNotifySeek) {
        position = header.offset;
        send_reply(client->socket.get(), header.id, static_cast<int>(position), {});
        return;
    }
    const std::string text = model->text(*node);
    const uint64_t from = std::min<uint64_t>(header.offset == UINT64_MAX ? position : header.offset, text.size());
    const auto n = std::min<uint64_t>(header.length, text.size() - from);
    if (header.offset == UINT64_MAX)
        position = from + n;
    send_reply(client->socket.get(), header.id, static_cast<int>(n),
               {reinterpret_cast<const uint8_t *>(text.data()) + from, static_cast<size_t>(n)});
}

void Server::control(const std::shared_ptr<Client> &client, const RequestHeader &header, const Bytes &payload)
{
    std::string text;
    int result = 0;
    try {
        text = board_.control(words_of(payload));
    } catch (const std::exception &error) {
        text = error.what();
        result = -EINVAL;
    }
    if (text.size() > kMaxPayload)
        text.resize(kMaxPayload);
    send_reply(client->socket.get(), header.id, result, {reinterpret_cast<const uint8_t *>(text.data()), text.size()});
}

void Server::request(const std::shared_ptr<Client> &client, const RequestHeader &header, Bytes payload)
{
    const Node *node = board_.node(header.node);
    Model *model = node ? board_.model_of(*node) : nullptr;
    const IoctlForm *form = model ? board_.ioctl_form(*node, header.request) : nullptr;
    const int error = !form                                                                           ? ENOTTY
                      : payload.size() != (form->by_value ? sizeof(uint64_t) : form->size)            ? EINVAL
                      : client->waiting.size() >= kMostWaiting || client->waiting.contains(header.id) ? EBUSY
                                                                                                      : 0;
    if (error)
        send_reply(client->socket.get(), header.id, -error, {});
    else
        model->ioctl(*node, header.request, std::move(payload), answer_for(client, header.id));
}

void Server::handle(const std::shared_ptr<Client> &client, const RequestHeader &header, Bytes payload)
{
    const int fd = client->socket.get();
    switch (header.op) {
    case Op::kRead:
    case Op::kWrite: {
        const int result = handle_transfer(client, header, payload);
        if (result < 0 || header.op == Op::kWrite)
            send_reply(fd, header.id, result, {});
        return;
    }
    case Op::kIoctl: request(client, header, std::move(payload)); return;
    case Op::kCancel: {
        const auto waiting = client->waiting.find(header.id);
        if (waiting != client->waiting.end())
            Answer(waiting->second).fail(EINTR);
        return;
    }
    case Op::kOpen: open_channel(client, header); return;
    case Op::kNotifyRead:
    case Op::kNotifySeek: read_text(client, header); return;
    case Op::kControl: control(client, header, payload); return;
    case Op::kHold:
        hold(client);
        send_reply(fd, header.id, 0, {});
        return;
    case Op::kRefused:
        note_refusal(board_, header, payload);
        send_reply(fd, header.id, 0, {});
        return;
    case Op::kBus:
    case Op::kInterface:
    case Op::kSwitch: serve_request(board_, header, std::move(payload), answer_for(client, header.id)); return;
    }
    send_reply(fd, header.id, -ENOSYS, {});
}

} // namespace vboard
