#include "auth/config_lines.h"

#include <cerrno>
#include <cstdlib>
#include <sys/stat.h>

#include "core/log.h"
#include "core/stream.h"

namespace ddal::auth {

LineReader::~LineReader()
{
    free(text_);
}

int LineReader::next()
{
    errno = 0;
    const ssize_t n = core::read_line(in_, &text_, &capacity_);
    if (n < 0) {
        size_ = 0;
        return feof(in_) && !ferror(in_) ? 0 : core::minus_errno();
    }
    size_ = static_cast<size_t>(n);
    return 1;
}

int LineReader::unread()
{
    errno = 0;
    return fseeko(in_, -static_cast<off_t>(size_), SEEK_CUR) == 0 ? 0 : core::minus_errno();
}

LinePattern::~LinePattern()
{
    if (compiled_)
        regfree(&regex_);
}

int LinePattern::match(const LineReader &line)
{
    if (!compiled_ && regcomp(&regex_, expression_, REG_EXTENDED | flags_) != 0)
        return -ENOMEM;
    compiled_ = true;

    matches_[0] = {0, static_cast<regoff_t>(line.size_without_newline())};
    // regexec reports a lack of memory as "no match"; errno tells the two apart.
    errno = 0;
    const int code = regexec(&regex_, line.text(), sizeof matches_ / sizeof matches_[0], matches_, REG_STARTEND);
    if (code == 0)
        return 1;
    if (errno == ENOMEM)
        return -ENOMEM;
    return code == REG_NOMATCH ? 0 : -code;
}

int write_text(FILE *out, const char *text, size_t size)
{
    return core::write_stream(out, text, size) == size ? 0 : -EIO;
}

int check_read_whole(FILE *in)
{
    const int fd = fileno(in);
    if (fd < 0) // a stream in memory
        return 0;
    struct stat status;
    return fstat(fd, &status) == 0 && (!S_ISREG(status.st_mode) || status.st_size == ftello(in)) ? 0 : -EIO;
}

int copy_until(LineReader &lines, LinePattern &target, LinePattern *stop, FILE *out)
{
    int read;
    while ((read = lines.next()) > 0) {
        const int found = target.match(lines);
        if (found != 0)
            return found;
        const int stopped = stop ? stop->match(lines) : 0;
        if (stopped != 0)
            return stopped < 0 ? stopped : lines.unread();

        int written = write_text(out, lines.text(), lines.size());
        if (written == 0 && !lines.has_newline())
            written = write_text(out, "\n", 1);
        if (written != 0)
            return written;
    }
    return read;
}

} // namespace ddal::auth
