// Version of the board's software.
#include <ddal/version.h>

#include <cstring>
#include <ddal/common.h>

#include "core/log.h"
#include "core/text.h"

namespace {

constexpr size_t kVersionSize = 128;
constexpr char kOnTag[] = "-0-g"; // the build is exactly the tag: 0 commits after it, then the commit's number
constexpr char kHexDigits[] = "0123456789abcdefABCDEF";

void drop_newline(char *text)
{
    const size_t length = strlen(text);
    if (length > 0 && text[length - 1] == '\n')
        text[length - 1] = '\0';
}

void drop_tag_suffix(char *text)
{
    char *suffix = nullptr; // the last occurrence, because a tag may hold the same letters
    for (char *next = text; (next = strstr(next, kOnTag)) != nullptr; ++next)
        suffix = next;
    if (!suffix)
        return;
    const char *commit = suffix + sizeof kOnTag - 1;
    if (*commit != '\0' && commit[strspn(commit, kHexDigits)] == '\0')
        *suffix = '\0';
}

} // namespace

int ddal_version_get_lfs_version(char *buf, size_t *size)
{
    char text[kVersionSize];
    const int result = ddal_common_read_string(sizeof text, text, "/etc/version");
    if (result < 0)
        return log_error(result, "cannot read /etc/version: %d\n\n", result);
    drop_newline(text);
    drop_tag_suffix(text);
    *size = ddal_common_strlcpy(buf, text, *size);
    return 0;
}
