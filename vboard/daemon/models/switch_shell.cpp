#include "daemon/models/switch_shell.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <system_error>

#include "daemon/board.h"
#include "daemon/log.h"
#include "daemon/models/switch.h"

namespace vboard {

namespace {

constexpr uint16_t kBoardPort = 5342;
constexpr const char *kPrompt = "BCM.0> ";
constexpr size_t kLongestLine = 4096;
constexpr const char *kClockSelection = "modreg top_misc_control_2 l1_rcvd_pri_clk_port_sel=";

void say(int fd, const std::string &text)
{
    static_cast<void>(!send(fd, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT));
}

} // namespace

void SwitchShell::start()
{
    UniqueFd listener{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(listener.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener.get(), 16) != 0 ||
        getsockname(listener.get(), reinterpret_cast<sockaddr *>(&address), &length) != 0)
        throw std::system_error(errno, std::generic_category(), "the switch's shell");
    board().map_port(kBoardPort, ntohs(address.sin_port));
    listener_ = Acceptor(std::move(listener));
    board().loop().watch(listener_.descriptor(), [this] { accept_session(); });
}

void SwitchShell::accept_session()
{
    auto session = std::make_unique<Session>();
    session->socket = listener_.accept();
    const int fd = session->socket.get();
    if (fd < 0 || !is_trusted_tcp_peer(fd)) // every user of the machine reaches a TCP port
        return;
    if (!silent_)
        say(fd, kPrompt);
    sessions_[fd] = std::move(session);
    board().loop().watch(fd, [this, fd] { serve(fd); });
}

void SwitchShell::serve(int fd)
{
    Session &session = *sessions_.at(fd);
    char bytes[1024];
    const ssize_t n = recv(fd, bytes, sizeof bytes, 0);
    if (n < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (n <= 0 || session.input.size() > kLongestLine) {
        board().loop().forget(fd);
        sessions_.erase(fd);
        return;
    }
    session.input.append(bytes, static_cast<size_t>(n));
    for (size_t end; (end = session.input.find('\n')) != std::string::npos; session.input.erase(0, end + 1))
        run(session, session.input.substr(0, end));
}

void SwitchShell::run(Session &session, const std::string &line)
{
    if (silent_)
        return;
    std::string answer = line + "\r\n"; // the echo
    if (line == "echo $?") {
        answer += std::to_string(session.result) + "\r\n";
    } else if (line != "exit;") { // which leaves a subshell; at the top level nothing happens
        keep_line(log_, line);
        session.result = result_;
        if (result_ == 0 && line.rfind(kClockSelection, 0) == 0)
            if (auto *const board_switch = board().find<Switch>())
                board_switch->select_clock(static_cast<uint32_t>(strtoul(&line[strlen(kClockSelection)], nullptr, 10)));
        if (!output_.empty())
            answer += output_ + "\r\n";
    }
    say(session.socket.get(), answer + kPrompt);
}

ControlTable SwitchShell::commands()
{
    using Row = ControlRow<SwitchShell>;
    return {
        Row{"log", "print the commands since the last time, one a line",
            [](SwitchShell &shell) { return std::exchange(shell.log_, {}); }},
        Row{"answer RESULT [TEXT...]", "let the next commands print the text and end with the result",
            [](SwitchShell &shell, const Given &given) {
                shell.result_ = given.number<int>("RESULT");
                shell.output_.clear();
                for (const std::string &word : given.words("TEXT"))
                    shell.output_ += (shell.output_.empty() ? "" : " ") + word;
            }},
        Row{"silent on|off", "take connections and say nothing, or answer again",
            [](SwitchShell &shell, const Given &given) { shell.silent_ = given.says("on"); }},
    };
}

} // namespace vboard
