// Names of short-lived files next to the files that they replace.
#pragma once

#include <cerrno>

namespace ddal::core {

// A name ".ddal-XXXXXX" with six letters. Empty until take() succeeds.
class FreshName {
public:
    explicit operator bool() const { return text_[0] != '\0'; }
    const char *get() const { return text_; }

    // Reports whether a file's name has this form.
    static bool matches(const char *name);

    // Calls `claim(name)` with up to kAttempts names, until it succeeds or fails with an errno other than EEXIST.
    template <typename Claim>
    bool take(Claim claim)
    {
        for (int attempt = 0; attempt < kAttempts; ++attempt) {
            choose();
            if (claim(static_cast<const char *>(text_)))
                return true;
            if (errno != EEXIST)
                break;
        }
        text_[0] = '\0';
        return false;
    }

private:
    static constexpr int kAttempts = 1000;

    void choose();

    char text_[sizeof ".ddal-XXXXXX"] = "";
};

} // namespace ddal::core
