#include "ddalctl/secret.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <termios.h>
#include <unistd.h>

#include "ddalctl/failure.h"
#include "ddalctl/interrupt.h"

namespace ddalctl {

namespace {

class NoEcho {
public:
    NoEcho()
    {
        if (tcgetattr(STDIN_FILENO, &saved_) != 0)
            throw WrongUse("cannot read the settings of the terminal");
        termios silent = saved_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        silent.c_lflag |= ECHONL;
        if (tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent) != 0)
            throw WrongUse("cannot switch off the echo of the terminal");
    }
    ~NoEcho() { tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved_); }
    NoEcho(const NoEcho &) = delete;
    NoEcho &operator=(const NoEcho &) = delete;

private:
    termios saved_ = {};
};

} // namespace

Secret::~Secret()
{
    explicit_bzero(text_, sizeof text_);
}

void Secret::read(const std::string &what)
{
    if (!isatty(STDIN_FILENO)) {
        read_all();
        return;
    }
    const StopOnSignal stop; // so that a signal cannot leave the echo off
    const NoEcho no_echo;
    read_line(what + ": ");
    Secret again;
    again.read_line("Repeat it: ");
    if (strcmp(text_, again.text_) != 0)
        throw WrongUse("the two passwords differ");
}

void Secret::read_line(const std::string &prompt)
{
    fputs(prompt.c_str(), stderr);
    const ssize_t n = ::read(STDIN_FILENO, text_, sizeof text_);
    if (n <= 0)
        throw WrongUse("no password given");
    check(static_cast<size_t>(n));
}

void Secret::read_all()
{
    size_t length = 0;
    while (length < sizeof text_) {
        const ssize_t n = ::read(STDIN_FILENO, text_ + length, sizeof text_ - length);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            throw Failure(-errno, kOperationFailed, std::string("standard input: ") + strerror(errno));
        if (n == 0)
            break;
        length += static_cast<size_t>(n);
    }
    check(length);
}

void Secret::check(size_t length)
{
    if (length == sizeof text_)
        throw WrongUse("a password has at most " + std::to_string(sizeof text_ - 2) + " bytes");
    if (length > 0 && text_[length - 1] == '\n')
        --length;
    text_[length] = '\0';
    if (length == 0)
        throw WrongUse("the password is empty");
    if (memchr(text_, '\0', length) || memchr(text_, '\n', length))
        throw WrongUse("a password is one line of text");
}

} // namespace ddalctl
