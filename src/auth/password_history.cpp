// Number of earlier passwords that PAM remembers: the persistent number and the live PAM file, which must agree.
#include <ddal/auth.h>

#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

#include "auth/config_lines.h"
#include "core/atboot.h"
#include "core/atomic_file.h"
#include "core/copy.h"
#include "core/directory.h"
#include "core/log.h"
#include "core/stream.h"
#include "core/unique_fd.h"

using ddal::core::AtomicFile;

namespace ddal::auth {

namespace {

constexpr const char *kPamPasswordStack = "/etc/pam.d/common-password";
constexpr const char *kPamHistoryLine =
    "^password[[:space:]]+.+[[:space:]]+pam_pwhistory\\.so[[:space:]]+.*remember=([[:digit:]]+)";
constexpr const char *kPersistentDirectory = "/rom/etc/security";
constexpr mode_t kPersistentDirectoryMode = 0755;
constexpr const char *kPersistentLength = "/rom/etc/security/pwhistory_remember";
constexpr const char *kHistoryStore = "/rom/etc/security/opasswd";

// Writes the line with the digits of its group replaced.
int write_with_length(const LineReader &line, const LinePattern &pattern, uint32_t length, FILE *out)
{
    const int before = write_text(out, line.text(), pattern.group_begin());
    if (before != 0)
        return before;
    if (core::print_stream(out, "%" PRIu32, length) < 0)
        return -EIO;
    return write_text(out, line.text() + pattern.group_end(), line.size() - pattern.group_end());
}

// Kept: a history that cannot be emptied does not fail the edit, because it may not exist yet.
void empty_history()
{
    const core::UniqueFd store{open(kHistoryStore, O_WRONLY | O_TRUNC | O_CLOEXEC)};
    if (store)
        static_cast<void>(fsync(store.get()));
}

int set_pam_history_length(uint32_t length)
{
    AtomicFile pam{kPamPasswordStack, "w"};
    if (!pam)
        return core::minus_errno();

    FILE *const in = pam.reader();
    FILE *const out = pam.writer();
    LineReader lines{in};
    LinePattern history_line{kPamHistoryLine};
    const int found = copy_until(lines, history_line, nullptr, out);
    if (found <= 0)
        return found < 0 ? found : -ENODATA;
    const int written = write_with_length(lines, history_line, length, out);
    if (written != 0)
        return written;
    int copied = ddal_common_copy_stream(in, out);
    if (copied == 0)
        copied = check_read_whole(in);
    if (copied != 0)
        return copied;

    if (length == 0)
        empty_history();
    return pam.commit();
}

// Reads one unsigned decimal number at the start of the file. Returns 0 or a negative errno. An empty file keeps
// `*number`: a first change was cut short, and nothing is stored.
int read_number(FILE *in, uint32_t *number)
{
    char text[32];
    const core::SignalHold hold;
    errno = 0;
    if (!fgets(text, sizeof text, in))
        return feof(in) ? 0 : core::minus_errno();
    const char *digits = text;
    while (isspace(static_cast<unsigned char>(*digits)))
        ++digits;
    if (!isdigit(static_cast<unsigned char>(*digits)))
        return core::minus_errno();
    const unsigned long long value = strtoull(digits, nullptr, 10);
    if (value > UINT32_MAX)
        return -ERANGE;
    *number = static_cast<uint32_t>(value);
    return 0;
}

int restore_password_history_length()
{
    errno = 0;
    const AtomicFile file{kPersistentLength, "r"};
    if (!file)
        return errno == ENOENT ? 0 : core::minus_errno();

    // Holds the lock until PAM agrees, so that a concurrent change is not undone.
    uint32_t length = 0;
    const int result = read_number(file.reader(), &length);
    return result == 0 && length != 0 ? set_pam_history_length(length) : result;
}

DDAL_ATBOOT_HOOK(password_history, restore_password_history_length, "Restore PAM pwhistory settings")

} // namespace

} // namespace ddal::auth

using namespace ddal::auth;

int ddal_auth_set_password_history_len(uint32_t len)
{
    // A failure shows when the file in the directory is opened.
    static_cast<void>(ddal_common_mkdir_p(kPersistentDirectory, kPersistentDirectoryMode));
    AtomicFile persistent{kPersistentLength, "w"};
    if (!persistent)
        return ddal::core::minus_errno();
    errno = 0;
    if (ddal::core::print_stream(persistent.writer(), "%" PRIu32 "\n", len) < 0)
        return ddal::core::minus_errno();

    const int result = set_pam_history_length(len);
    return result != 0 ? result : persistent.commit();
}
