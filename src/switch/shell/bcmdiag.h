// Steps of a session with the switch's diagnostic shell. Each step logs its failure to the system log.
#pragma once

#include <cstddef>
#include <cstdio>

namespace ddal::ethswitch {

// Sends the whole text and discards the peer's output meanwhile. Returns 0, -EIO, -ENETDOWN or the negative errno of
// the write.
int send_str(int sock, const char *text, size_t length);

// Skips the echo of the line just sent and reads up to the prompt. Writes every line to `out` unless that is null.
// Returns 0, -ETIMEDOUT, -ENETDOWN or the failure of the copy.
int get_rsp(int sock, FILE *out);

// Writes one line without its carriage returns. Returns 0, the negative errno, or -EIO when errno is 0.
int write_without_cr(FILE *out, const char *line, size_t length);

} // namespace ddal::ethswitch
