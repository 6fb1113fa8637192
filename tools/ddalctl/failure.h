// How a command ends when it does not succeed.
#pragma once

#include <stdexcept>
#include <string>

namespace ddalctl {

enum ExitStatus {
    kDone = 0,
    kOperationFailed = 1,
    kWrongUse = 2,
    kNothingThere = 3, // no board, no such device, property, item or interface
};

// "ENOENT", "DDAL_ERR_FAILURE"; empty for a number that is neither.
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

// The Failure that belongs to a result of the library, with the library's own text.
Failure failure_of(int result);

// Throws that Failure unless the result is the operation's success value.
void require(int result, int success = 0);

} // namespace ddalctl
