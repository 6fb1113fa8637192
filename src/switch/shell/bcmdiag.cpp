// Client of the switch's diagnostic shell.
#include "switch/shell/bcmdiag.h"

#include <ddal/bcmdiag.h>

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <netinet/in.h>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <syslog.h>
#include <utility>

#include "core/stream.h"
#include "core/unique_fd.h"

using ddal::core::UniqueFd;

// This client logs to the system log directly, in a separate format.
#define diag_error_as(caller, format, ...)                                                                             \
    syslog(LOG_USER | LOG_ERR, "%s:%u:ERROR: " format, (caller),                                                       \
           static_cast<unsigned>(__LINE__) __VA_OPT__(, ) __VA_ARGS__)
#define diag_error(format, ...) diag_error_as(__func__, format __VA_OPT__(, ) __VA_ARGS__)

namespace ddal::ethswitch {

namespace {

constexpr uint16_t kShellPort = 5342;
constexpr std::string_view kPrompt = "BCM.0> ";
constexpr std::string_view kLeaveSubshell = "exit;\n";
constexpr std::string_view kPrintResult = "echo $?\n";
constexpr size_t kLineLimit = 1024;
constexpr int kWaitMs = 3000;
constexpr int kStepMs = 30'000;
constexpr size_t kInputLimit = size_t{4} << 20; // bytes

int64_t now_ms()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// Returns the events that ended the wait, 0 at the time `end`, or a negative value when poll failed. Continues after
// signals.
int wait_until(int64_t end, int sock, short events)
{
    pollfd waiting{sock, events, 0};
    for (;;) {
        const int64_t left = end - now_ms();
        const int n = poll(&waiting, 1, left > 0 ? static_cast<int>(left) : 0);
        if (n > 0)
            return waiting.revents;
        if (n == 0 || errno != EINTR)
            return n;
    }
}

// The socket during one transmission or one response. The limits kStepMs and kInputLimit keep a shell that drips or
// never ends from holding up the caller.
struct StepSocket {
    int fd;
    int64_t end = now_ms() + kStepMs;
    size_t input = 0;
};

// Returns the events that ended the wait, 0 after kWaitMs or at a limit of the step, or a negative value when poll
// failed.
int wait_for(const StepSocket &sock, short events)
{
    const int64_t now = now_ms();
    if (now >= sock.end || sock.input >= kInputLimit)
        return 0;
    return wait_until(std::min(now + kWaitMs, sock.end), sock.fd, events);
}

// Works like recv without waiting: an error alone may have ended the wait.
ssize_t read_some(StepSocket &sock, char *buf, size_t len)
{
    const ssize_t n = TEMP_FAILURE_RETRY(recv(sock.fd, buf, std::min(len, kInputLimit - sock.input), MSG_DONTWAIT));
    sock.input += n > 0 ? static_cast<size_t>(n) : 0;
    return n;
}

// Waits once and reads once. Returns the number of bytes (> 0), or the failure. A reset connection counts as a closed
// one.
ssize_t receive(StepSocket &sock, char *buf, size_t len)
{
    if (wait_for(sock, POLLIN) <= 0) {
        diag_error_as("get_rsp", "did not detect end of response\n");
        return -ETIMEDOUT;
    }
    const ssize_t n = read_some(sock, buf, len);
    if (n <= 0) {
        diag_error_as("get_rsp", "socket disconnected\n");
        return -ENETDOWN;
    }
    return n;
}

int skip_echo(StepSocket &sock)
{
    char byte = 0;
    while (byte != '\n') {
        const ssize_t n = receive(sock, &byte, 1);
        if (n < 0)
            return static_cast<int>(n);
    }
    return 0;
}

// Takes every complete line from the front of the buffer. A full buffer without a newline counts as a line.
int take_lines(FILE *out, char *buffer, size_t *used)
{
    while (*used > 0) {
        const void *newline = memchr(buffer, '\n', *used);
        size_t length = newline ? static_cast<size_t>(static_cast<const char *>(newline) - buffer) + 1 : 0;
        if (!newline && *used == kLineLimit)
            length = kLineLimit;
        if (length == 0)
            break;

        const int rc = out ? write_without_cr(out, buffer, length) : 0;
        if (rc != 0)
            return rc;
        *used -= length;
        memmove(buffer, buffer + length, *used);
    }
    return 0;
}

} // namespace

int write_without_cr(FILE *out, const char *line, size_t length)
{
    const char *const end = line + length;
    while (line < end) {
        const void *cr = memchr(line, '\r', static_cast<size_t>(end - line));
        const char *const stop = cr ? static_cast<const char *>(cr) : end;
        while (line < stop) {
            errno = 0;
            const auto left = static_cast<size_t>(stop - line);
            ddal::core::wait_until_writable(out);
            const size_t n = ddal::core::write_stream(out, line, left);
            line += n;
            if (n == left)
                break;
            if (errno != EINTR) {
                const int rc = errno != 0 ? -errno : -EIO;
                diag_error("fwrite of %u bytes %m\n", static_cast<unsigned>(left));
                return rc;
            }
            clearerr(out);
        }
        line = cr ? stop + 1 : end;
    }
    return 0;
}

int send_str(int sock, const char *text, size_t length)
{
    StepSocket step{sock};
    while (length > 0) {
        const int events = wait_for(step, POLLIN | POLLOUT);
        if (events <= 0) {
            diag_error("poll timed out or failed\n");
            return -EIO;
        }
        if (events & ~POLLOUT) { // input first: unread output must never block the peer
            char discarded[kLineLimit];
            if (read_some(step, discarded, sizeof discarded) <= 0)
                return -ENETDOWN;
            continue;
        }

        const ssize_t n = send(sock, text, length, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n >= 0) {
            text += n;
            length -= static_cast<size_t>(n);
        } else if (errno != EINTR && errno != EAGAIN) {
            const int rc = -errno;
            diag_error("write %m\n");
            return rc;
        }
    }
    return 0;
}

int get_rsp(int sock, FILE *out)
{
    StepSocket step{sock};
    const int echo = skip_echo(step);
    if (echo != 0)
        return echo;

    char buffer[kLineLimit];
    size_t used = 0;
    while (std::string_view{buffer, used} != kPrompt) {
        const ssize_t n = receive(step, buffer + used, sizeof buffer - used);
        if (n < 0)
            return static_cast<int>(n);
        used += static_cast<size_t>(n);

        const int rc = take_lines(out, buffer, &used);
        if (rc != 0)
            return rc;
    }
    return 0;
}

} // namespace ddal::ethswitch

namespace {

using namespace ddal::ethswitch;

// A growing text in memory, which can be read once closed.
class MemoryStream {
public:
    MemoryStream() : stream_(open_memstream(&text_, &length_)) {}
    ~MemoryStream()
    {
        if (stream_)
            fclose(stream_);
        free(text_);
    }
    MemoryStream(const MemoryStream &) = delete;
    MemoryStream &operator=(const MemoryStream &) = delete;

    FILE *get() const { return stream_; }
    bool close()
    {
        if (fclose(std::exchange(stream_, nullptr)) != 0)
            return false;
        if (!text_)
            errno = ENOMEM; // fclose trims the text to its length and does not report a failure of that
        return text_ != nullptr;
    }
    std::string_view text() const { return {text_, length_}; }
    const char *c_str() const { return text_; }

private:
    char *text_ = nullptr;
    size_t length_ = 0;
    FILE *stream_;
};

// Connects within kWaitMs. After a signal the kernel continues the connect, and its result is read at the end.
bool connect_in_time(int sock, const sockaddr_in &address)
{
    const int64_t end = now_ms() + kWaitMs;
    if (connect(sock, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
        return true;
    if (errno == EINPROGRESS) // the socket's time limit has this errno
        errno = ETIMEDOUT;
    if (errno != EINTR)
        return false;

    int error = ETIMEDOUT;
    socklen_t size = sizeof error;
    const int events = wait_until(end, sock, POLLOUT);
    if (events < 0 || (events > 0 && getsockopt(sock, SOL_SOCKET, SO_ERROR, &error, &size) != 0))
        return false;
    errno = error;
    return error == 0;
}

int connect_shell(UniqueFd *sock)
{
    sock->reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
    if (!*sock) {
        const int rc = -errno;
        diag_error("socket %m\n");
        return rc;
    }

    // A full queue of the listener would otherwise hold the caller for the minutes of TCP's limit.
    const timeval limit{kWaitMs / 1000, 0};
    setsockopt(sock->get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);

    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(kShellPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (!connect_in_time(sock->get(), address)) {
        const int rc = -errno;
        diag_error("connect %m\n\n");
        return rc;
    }
    return 0;
}

// Brings the shell to its top level and a fresh prompt.
int reach_top_level(int sock)
{
    int rc = send_str(sock, kLeaveSubshell.data(), kLeaveSubshell.size());
    if (rc != 0) {
        diag_error("sending exit: %d\n\n", rc);
        return rc;
    }
    rc = get_rsp(sock, nullptr);
    if (rc != 0)
        diag_error("waiting for exit response: %d\n\n", rc);
    return rc;
}

[[gnu::format(printf, 3, 0)]] int run_command(int sock, FILE *out, const char *format, va_list arguments)
{
    MemoryStream command;
    if (!command.get()) {
        const int rc = -errno;
        diag_error("open_memstream %m\n");
        return rc;
    }
    errno = 0;
    const bool formatted = vfprintf(command.get(), format, arguments) >= 0 && fputc('\n', command.get()) != EOF;
    if (!command.close() || !formatted) {
        const int rc = errno != 0 ? -errno : -EIO;
        diag_error("fclose %m\n");
        return rc;
    }

    int rc = send_str(sock, command.text().data(), command.text().size());
    if (rc != 0) {
        diag_error("sending command: %d\n\n", rc);
        return rc;
    }
    rc = get_rsp(sock, out);
    if (rc != 0)
        diag_error("receiving output: %d\n\n", rc);
    return rc;
}

int command_result(int sock, const MemoryStream &answer)
{
    int rc = send_str(sock, kPrintResult.data(), kPrintResult.size());
    if (rc != 0) {
        diag_error("sending echo $? command: %d\n\n", rc);
        return rc;
    }
    rc = get_rsp(sock, answer.get());
    if (rc != 0) {
        diag_error("receiving command return output: %d\n\n", rc);
        return rc;
    }
    errno = 0;
    if (fflush(answer.get()) != 0) { // closing would also trim the text, which can fail
        rc = errno != 0 ? -errno : -EIO;
        diag_error("fclose %m\n");
        return rc;
    }

    rc = static_cast<int>(std::clamp<long>(strtol(answer.c_str(), nullptr, 10), INT_MIN, INT_MAX));
    if (rc != 0)
        diag_error("diag command returned: %d\n\n", rc);
    return rc;
}

} // namespace

int telnet_bcmdiag(FILE *out, const char *format, ...)
{
    UniqueFd sock;
    int rc = connect_shell(&sock);
    if (rc == 0)
        rc = reach_top_level(sock.get());
    if (rc != 0)
        return rc;

    // Opened before the command is sent: a command that has taken effect does not fail for want of memory.
    const MemoryStream answer;
    if (!answer.get()) {
        rc = -errno;
        diag_error("open_memstream %m\n");
        return rc;
    }
    va_list arguments;
    va_start(arguments, format);
    rc = run_command(sock.get(), out, format, arguments);
    va_end(arguments);
    return rc == 0 ? command_result(sock.get(), answer) : rc;
}
