// The exit statuses of a command, and its failures.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

#include "ddalctl/evidence.h"

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
    // `text` says what failed. Takes the evidence of the library with it, or the path that the command accessed itself.
    Failure(int code, ExitStatus status, const std::string &text, const char *path = nullptr)
        : std::runtime_error(text), code_(code), status_(status), evidence_(ddalctl::evidence())
    {
        if (path)
            evidence_.path = path;
    }

    int code() const { return code_; }
    ExitStatus status() const { return status_; }
    const Evidence &evidence() const { return evidence_; }
    // Names the service behind the operation, unless an access tells more.
    Failure &&at(const char *service) &&
    {
        if (evidence_.path.empty())
            evidence_.path = service;
        return std::move(*this);
    }
    // Whether the text is only a cause: the command is what failed.
    bool is_cause() const { return is_cause_; }

private:
    friend Failure failure_of(int result);

    int code_;
    ExitStatus status_;
    Evidence evidence_;
    bool is_cause_ = false;
};

class WrongUse : public Failure {
public:
    explicit WrongUse(const std::string &text);
};

// The cause where no access has failed: the text of an errno, or the last line of the log. Empty: neither tells it.
std::string text_without_access(int code, const Evidence &evidence);

// The Failure for a result of the library. Its text is the cause: that of the code or, where the code tells none, that
// of the access that failed or of the log.
Failure failure_of(int result);

// Throws failure_of(result) unless the result is the operation's success value.
void require(int result, int success = 0);

} // namespace ddalctl
