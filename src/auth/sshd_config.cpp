#include "auth/sshd_config.h"

#include <cerrno>
#include <cstring>

#include "auth/config_lines.h"
#include "core/atomic_file.h"
#include "core/copy.h"
#include "core/log.h"
#include "core/program.h"
#include "core/stream.h"

using ddal::core::ArgumentVector;
using ddal::core::AtomicFile;
using ddal::core::code_of;

namespace ddal::auth {

namespace {

constexpr const char *kLiveConfig = "/etc/ssh/sshd_config";
constexpr const char *kPersistentConfig = "/ffs/run/etc/ssh/p_sshd_config";
constexpr const char *kDaemon = "/usr/sbin/sshd";
constexpr const char *kAnyUserBlock = "^Match[[:space:]]+User.*";
constexpr const char *kEmptyLine = "^$";
constexpr size_t kPatternSize = 512;

int replace_global(const char *pattern, const char *name, const char *value, LineReader &lines, FILE *out)
{
    LinePattern option{pattern, REG_ICASE};
    LinePattern any_block{kAnyUserBlock, REG_ICASE};
    const int copied = copy_until(lines, option, &any_block, out);
    if (copied < 0)
        return copied;
    if (value && core::print_stream(out, "%s %s\n", name, value) < 0)
        return -EIO;
    return 0;
}

// A block that is not found before the first empty line begins there. The lines after it then belong to the block, and
// the daemon's test decides whether the result is valid.
int replace_in_block(const char *pattern, const char *user, const char *name, const char *value, LineReader &lines,
                     FILE *out)
{
    LinePattern header{pattern, REG_ICASE};
    LinePattern empty_line{kEmptyLine, REG_ICASE};
    int copied = copy_until(lines, header, &empty_line, out);
    if (copied < 0)
        return copied;
    if (core::print_stream(out, "Match User %s\n", user) < 0)
        return -EIO;

    LinePattern option{name, REG_ICASE};
    LinePattern any_block{kAnyUserBlock, REG_ICASE};
    copied = copy_until(lines, option, &any_block, out);
    if (copied < 0)
        return copied;
    if (value && core::print_stream(out, " %s %s\n", name, value) < 0)
        return -EIO;
    return 0;
}

bool has_line_break(const char *text)
{
    return text && strchr(text, '\n');
}

int edit(const char *user, const char *name, const char *value, const AtomicFile &config)
{
    return copy_replace_option(user, name, value, config.reader(), config.writer());
}

// Runs the daemon's test on the configuration. Returns as the program runner does.
int validate(FILE *config)
{
    errno = 0;
    if (fseeko(config, 0, SEEK_SET) != 0) // rewind() would clear the flag of a failed write
        return core::minus_errno();
    return _ddal_common_shell_command_write_fp(config, 0, kDaemon, ArgumentVector{"-tf", "/dev/stdin"}.get());
}

} // namespace

int copy_replace_option(const char *user, const char *name, const char *value, FILE *in, FILE *out)
{
    const char *const sought = user ? user : name;
    char pattern[kPatternSize];
    const int length =
        snprintf(pattern, sizeof pattern, "%s%s%s", user ? "^Match[[:space:]]+User[[:space:]]+" : "^[[:space:]]*",
                 sought, user ? "[[:space:]]*$" : "");
    // A line break would add a line of the caller's choice to the configuration.
    if (length < 0 || static_cast<size_t>(length) >= sizeof pattern || has_line_break(user) || has_line_break(name) ||
        has_line_break(value))
        return log_error(-EINVAL, "error value %s too long to be found\n", sought);

    LineReader lines{in};
    const int replaced = user ? replace_in_block(pattern, user, name, value, lines, out)
                              : replace_global(pattern, name, value, lines, out);
    if (replaced != 0)
        return replaced;
    if (ddal_common_copy_stream(in, out) != 0)
        return 0; // kept: the daemon's test follows, and an incomplete file is never committed
    return ferror(in) || ferror(out) ? -EIO : check_read_whole(in);
}

int update_persistent_file(const char *name, const char *value)
{
    errno = 0;
    AtomicFile config{kPersistentConfig, "w"};
    if (!config)
        return errno == 0 ? 0 : DDAL_ERR_FAILURE; // kept: a missing persistent area sets no errno and is not a failure
    const int edited = edit(nullptr, name, value, config);
    if (edited != 0)
        return log_error(DDAL_ERR_FAILURE, "Unable to write persistent sshd config: %d\n", edited);
    return config.commit() == 0 ? 0 : DDAL_ERR_FAILURE;
}

} // namespace ddal::auth

using namespace ddal::auth;

int ddal_sshd_update_config(const char *user, const char *name, const char *value)
{
    AtomicFile config{kLiveConfig, "w+"};
    if (!config)
        return ddal::core::minus_errno();
    const int edited = edit(user, name, value, config);
    if (edited != 0)
        return log_error(edited, "Unable to write new sshd config: %d\n", edited);
    const int outcome = validate(config.writer());
    if (outcome != 0)
        return log_error(code_of(outcome), "Unable to validate new sshd config: %d\n", outcome);
    return config.commit();
}
