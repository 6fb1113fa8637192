// The C library's functions behind the stand-ins of libc_calls.cpp, for code that must itself take or free a low
// number.
#pragma once

extern "C"
{
int __real_open64(const char *path, int flags, ...);
int __real_fcntl64(int fd, int command, ...);
int __real_close(int fd);
}

namespace ddal::core {

constexpr int kStandardStreams = 3;

} // namespace ddal::core
