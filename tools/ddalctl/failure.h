// The exit statuses of a command, and its failures.
#pragma once

#include <stdexcept>
#include <string>

namespace ddalctl {

enum ExitStatus {
    kDone = 0,
    kOperationFailed = 1,
    kWrongUse = 2,
    kNothingThere = 3, // the board, device, property, item or interface does not exist
};

// The name of a code, such as "ENOENT" or "DDAL_ERR_FAILURE"; empty for an unknown number.
std::string name_of_code(int code);

class Failure : public std::runtime_error {
public:
    Failure(int code, ExitStatus status, const std::string &text)
        : std::runtime_error(text), code_(code), status_(status)
    {
    }

    int code() const { return code_; }
    ExitStatus status() const { return status_; }

private:
    int code_;
    ExitStatus status_;
};

class WrongUse : public Failure {
public:
    explicit WrongUse(const std::string &text);
};

// The Failure for a result of the library, with the library's text.
Failure failure_of(int result);

// Throws failure_of(result) unless the result is the operation's success value.
void require(int result, int success = 0);

} // namespace ddalctl
