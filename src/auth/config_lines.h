// Lines of a configuration file, and the patterns that pick them out.
#pragma once

#include <cstddef>
#include <cstdio>
#include <regex.h>

namespace ddal::auth {

// Reads a stream line by line. A line keeps its newline; the last one may lack it.
class LineReader {
public:
    explicit LineReader(FILE *in) : in_(in) {}
    LineReader(const LineReader &) = delete;
    LineReader &operator=(const LineReader &) = delete;
    ~LineReader();

    // 1 when a line was read, 0 at the end of the input, otherwise a negative errno.
    int next();
    // Sets the input back to the start of the line just read: 0 or a negative errno.
    int unread();

    const char *text() const { return text_; }
    size_t size() const { return size_; }
    bool has_newline() const { return size_ > 0 && text_[size_ - 1] == '\n'; }
    // The length that patterns see: "$" stands before the newline, not behind it.
    size_t size_without_newline() const { return size_ - (has_newline() ? 1 : 0); }

private:
    FILE *in_;
    char *text_ = nullptr;
    size_t capacity_ = 0;
    size_t size_ = 0;
};

// A POSIX extended regular expression with at most one group, compiled when it is first needed.
class LinePattern {
public:
    explicit LinePattern(const char *expression, int flags = 0) : expression_(expression), flags_(flags) {}
    LinePattern(const LinePattern &) = delete;
    LinePattern &operator=(const LinePattern &) = delete;
    ~LinePattern();

    // 1 for a match, 0 for none, -ENOMEM when the expression cannot be compiled, the matcher's negated code otherwise.
    int match(const LineReader &line);

    // Where the group of the last match stands in the line.
    size_t group_begin() const { return static_cast<size_t>(matches_[1].rm_so); }
    size_t group_end() const { return static_cast<size_t>(matches_[1].rm_eo); }

private:
    const char *expression_;
    int flags_;
    bool compiled_ = false;
    regex_t regex_;
    regmatch_t matches_[2] = {};
};

// 0, or -EIO for a short write.
int write_text(FILE *out, const char *text, size_t size);

// 0, or -EIO when a regular file was not read up to its end: another program rewrites it in place, so that what was
// read of it belongs to no version.
int check_read_whole(FILE *in);

// Copies lines until one matches `target`; that one is not copied and stays the line of `lines`. A line that matches
// `stop` (may be NULL) ends the copy as well and is read again next. A last line without newline is given one.
// Returns 1 when the target was found, 0 when it was not, otherwise a negative code.
int copy_until(LineReader &lines, LinePattern &target, LinePattern *stop, FILE *out);

} // namespace ddal::auth
