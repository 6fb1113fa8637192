#include "daemon/server.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iostream>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <system_error>

#include "daemon/requests.h"

namespace vboard {

struct Server::Client {
    UniqueFd socket;
    bool holds = false;
    std::map<uint32_t, Answer> waiting;
};

namespace {

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
    static_cast<void>(sendmsg(fd, &message, MSG_NOSIGNAL));
}

// Notes that the preload library has refused a call on a node, for the developer who wonders about the errno.
void note_refusal(const Board &board, const RequestHeader &header, const Bytes &payload)
{
    const Node *node = board.node(header.node);
    std::string call;
    for (const uint8_t c : payload)
        if (call.size() < 24 && (std::isalnum(c) || c == '_'))
            call += static_cast<char>(c);
    std::cerr << "refused: " << call << " on " << (node ? node->path : "?") << " by process " << header.pid << ": "
              << std::strerror(static_cast<int>(header.request)) << std::endl;
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

Server::Server(Board &board)
    : board_(board), listener_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    const std::string path = board.private_path("socket");
    if (path.size() >= sizeof name.sun_path)
        throw std::runtime_error("the board directory's path is too long for a socket: " + path);
    std::memcpy(name.sun_path, path.c_str(), path.size() + 1);
    unlink(path.c_str());
    if (bind(listener_.get(), reinterpret_cast<sockaddr *>(&name), sizeof name) != 0 ||
        listen(listener_.get(), 64) != 0)
        throw std::system_error(errno, std::generic_category(), path);
    board_.loop().watch(listener_.get(), [this] { accept_client(); });
}

Server::~Server()
{
    unlink(board_.private_path("socket").c_str());
}

void Server::accept_client()
{
    UniqueFd fd{accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC)};
    if (!fd)
        return;
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
    const bool held = found->second->holds;
    clients_.erase(found);
    if (held && --holders_ == 0 && stop_when_unheld_)
        board_.loop().stop();
}

void Server::serve(int fd)
{
    const auto client = clients_.at(fd);
    Bytes message(sizeof(RequestHeader) + kMaxPayload);
    const ssize_t n = recv(fd, message.data(), message.size(), MSG_DONTWAIT);
    if (n < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (n < static_cast<ssize_t>(sizeof(RequestHeader))) {
        drop(fd);
        return;
    }
    RequestHeader header;
    std::memcpy(&header, message.data(), sizeof header);
    handle(client, header, Bytes(message.begin() + sizeof header, message.begin() + n));
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
    uint64_t &position = positions_[header.flags];
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
    case Op::kIoctl: {
        const Node *node = board_.node(header.node);
        Model *model = node ? board_.model_of(*node) : nullptr;
        const Answer answer = answer_for(client, header.id);
        if (model)
            model->ioctl(*node, header.request, std::move(payload), answer);
        else
            answer.fail(ENOTTY);
        return;
    }
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
        client->holds = true;
        ++holders_;
        send_reply(fd, header.id, 0, {});
        return;
    case Op::kRefused:
        note_refusal(board_, header, payload);
        send_reply(fd, header.id, 0, {});
        return;
    case Op::kInterface:
    case Op::kSwitch: serve_request(board_, header, std::move(payload), answer_for(client, header.id)); return;
    }
    send_reply(fd, header.id, -ENOSYS, {});
}

} // namespace vboard
