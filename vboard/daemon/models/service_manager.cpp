#include "daemon/models/service_manager.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <sys/un.h>
#include <system_error>

#include "daemon/board.h"
#include "daemon/log.h"

namespace vboard {

namespace {

constexpr const char *kSocket = "/run/systemd/notify"; // as NOTIFY_SOCKET of the board descriptions names it
constexpr size_t kMostBytes = 4096;

std::string on_one_line(std::string text)
{
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    for (size_t at = 0; (at = text.find('\n', at)) != std::string::npos;)
        text.replace(at, 1, "; ");
    return text;
}

const ucred *sender_of(msghdr &message)
{
    for (cmsghdr *part = CMSG_FIRSTHDR(&message); part; part = CMSG_NXTHDR(&message, part))
        if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_CREDENTIALS)
            return reinterpret_cast<const ucred *>(CMSG_DATA(part));
    return nullptr;
}

} // namespace

void ServiceManager::start()
{
    listen();
}

void ServiceManager::listen()
{
    const std::string path = board().file(kSocket);
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    if (path.size() >= sizeof name.sun_path)
        throw std::runtime_error("the board directory's path is too long for a socket: " + path);
    std::memcpy(name.sun_path, path.c_str(), path.size() + 1);
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    unlink(path.c_str());
    socket_ = UniqueFd{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    const int on = 1;
    if (setsockopt(socket_.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof on) != 0 ||
        bind(socket_.get(), reinterpret_cast<sockaddr *>(&name), sizeof name) != 0)
        throw std::system_error(errno, std::generic_category(), path);
    board().loop().watch(socket_.get(), [this] { receive(); });
}

std::string ServiceManager::fault_of(const std::string &text, bool cut, const ucred *sender)
{
    if (!sender || sender->pid <= 0)
        return "no sender";
    if (cut)
        return "too long";
    if (text.find('\0') != std::string::npos)
        return "a NUL in it";
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const size_t equals = line.find('=');
        if (equals == std::string::npos || equals == 0)
            return "\"" + line + "\" assigns nothing";
    }
    return text.empty() ? "empty" : "";
}

void ServiceManager::take(const std::string &text)
{
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        ready_ = ready_ || line == "READY=1";
        pings_ += line == "WATCHDOG=1";
    }
    keep_line(log_, on_one_line(text));
}

void ServiceManager::receive()
{
    char bytes[kMostBytes];
    alignas(cmsghdr) char credentials[CMSG_SPACE(sizeof(ucred))];
    iovec part = {bytes, sizeof bytes};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = credentials;
    message.msg_controllen = sizeof credentials;
    const ssize_t n = recvmsg(socket_.get(), &message, MSG_CMSG_CLOEXEC);
    if (n < 0)
        return;
    const std::string text(bytes, static_cast<size_t>(n));
    const std::string fault = fault_of(text, message.msg_flags & MSG_TRUNC, sender_of(message));
    if (fault.empty()) {
        take(text);
        return;
    }
    ++ignored_;
    log_ += "ignored: " + fault + "\n";
}

// Takes what programs have sent by now.
void ServiceManager::drain()
{
    while (socket_) {
        const std::string before = log_;
        receive();
        if (log_ == before)
            break;
    }
}

void ServiceManager::leave()
{
    drain();
    if (!socket_)
        throw ControlError("the reader has left already");
    board().loop().forget(socket_.get());
    socket_ = UniqueFd{};
}

std::string ServiceManager::show()
{
    drain();
    return std::string("ready ") + (ready_ ? "yes" : "no") + "\nwatchdog " + std::to_string(pings_) + "\nignored " +
           std::to_string(ignored_) + "\n";
}

ControlTable ServiceManager::commands()
{
    using Row = ControlRow<ServiceManager>;
    return {
        Row{"show", "print whether the service is ready, and the counts of pings and of ignored messages",
            &ServiceManager::show},
        Row{"log", "print the messages that came since the last time, one a line",
            [](ServiceManager &manager) {
                manager.drain();
                return std::exchange(manager.log_, {});
            }},
        Row{"leave", "let the reader of the socket go; the name stays", &ServiceManager::leave},
        Row{"return", "let the reader come back",
            [](ServiceManager &manager) {
                if (manager.socket_)
                    throw ControlError("the reader is there");
                manager.listen();
            }},
    };
}

} // namespace vboard
