// The last failure of each thread, for ddal_ext_last_failure. Costs nothing until something fails.
#pragma once

#include <cstdio>
#include <type_traits>

namespace ddal::core {

// Remembers the access that has just failed, by path or by descriptor. Keeps errno.
void note_access(const char *path);
void note_access(int fd);
void note_access(FILE *stream);
// Remembers a device or file whose answer cannot be used: it has moved nothing, or something unexpected. No errno tells
// it.
void note_answer(int fd);
void note_answer(const char *path);
void note_access_below(int directory, const char *path);

// Remembers a program that could not be run, or that failed; `error` is positive, or 0 for a program that ran.
void note_program(const char *path, int error);

// Remembers the operation that reports a failure, and its result code.
void note_code(const char *caller, int code);

// Passes the value of a failing operation through and remembers it if it is a result code.
template <typename Value>
Value noted(const char *caller, Value value)
{
    if constexpr (std::is_same_v<Value, int> || std::is_same_v<Value, long> || std::is_same_v<Value, long long>)
        note_code(caller, static_cast<int>(value));
    return value;
}

} // namespace ddal::core
