// Edits of the SSH daemon's configuration.
#pragma once

#include <cstdio>

namespace ddal::auth {

// Copies a configuration from `in` to `out` with one option set, or deleted if `value` is NULL. The option is global if
// `user` is NULL, and otherwise stands in the block of that user. `in` must be seekable. Returns 0 or a negative code.
int copy_replace_option(const char *user, const char *name, const char *value, FILE *in, FILE *out);

// Makes the same global edit in the persistent copy. Returns 0 or a negative code.
int update_persistent_file(const char *name, const char *value);

} // namespace ddal::auth

// Makes the same edit in the live configuration if the daemon accepts the result. Returns 0 or a negative code.
int ddal_sshd_update_config(const char *user, const char *name, const char *value);
