// The two service accounts of the unit.
#pragma once

#include <cstddef>

namespace ddal::auth {

inline constexpr const char *kPrivilegedUser = "toor4qrx";
inline constexpr const char *kServiceUser = "serviceuser";

bool is_supported_user(const char *user);

// Looks up an account in the user database and copies its home directory, cut at n - 1 characters; copies nothing if n
// is 0. Returns 0, the positive error number of the lookup, or -ENOENT when the database lacks the account.
int find_account(const char *user, char *home, size_t n);

} // namespace ddal::auth
