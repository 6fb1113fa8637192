// What is wrong with a need.
#pragma once

#include <string>

namespace ddalctl::doctor {

struct Problem {
    std::string path;
    std::string what;      // "missing", "wrong mode", "wrong content"
    std::string detail;    // may be empty
    std::string next = ""; // instead of the need's next step
};

// What is wrong with a kind, by the word that people and programs sort by.
inline constexpr const char *kMissing = "missing";
inline constexpr const char *kWrongKind = "wrong kind";
inline constexpr const char *kWrongMode = "wrong mode";
inline constexpr const char *kWrongContent = "wrong content";
inline constexpr const char *kUnreadable = "unreadable";
inline constexpr const char *kNotRunning = "not running";

} // namespace ddalctl::doctor
