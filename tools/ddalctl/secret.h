// A password from the user. It is never an argument, and the destructor wipes it.
#pragma once

#include <cstddef>
#include <string>

namespace ddalctl {

class Secret {
public:
    Secret() = default;
    ~Secret();
    Secret(const Secret &) = delete;
    Secret &operator=(const Secret &) = delete;

    // On a terminal: asks for `what` twice, without echo. Otherwise reads standard input to its end and drops one final
    // line end. Throws WrongUse without a password, or when the text cannot be a password.
    void read(const std::string &what);

    const char *text() const { return text_; }

private:
    static constexpr size_t kSize = 1024;

    void read_line(const std::string &prompt);
    void read_all();
    void check(size_t length);

    char text_[kSize] = {};
};

} // namespace ddalctl
