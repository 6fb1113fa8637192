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

    // Reads the next line. Returns 1, 0 at the end of the input, or a negative errno.
    int next();
    // Sets the input back to the start of the line just read. Returns 0 or a negative errno.
    int unread();

    const char *text() const { return text_; }
    size_t size() const { return size_; }
    bool has_newline() const { return size_ > 0 && text_[size_ - 1] == '\n'; }
    // Returns the length that patterns see: "$" matches before the newline.
    size_t size_without_newline() const { return size_ - (has_newline() ? 1 : 0); }

private:
    FILE *in_;
    char *text_ = nullptr;
    size_t capacity_ = 0;
    size_t size_ = 0;
};

// A POSIX extended regular expression with at most one group, compiled on first use.
class LinePattern {
public:
    explicit LinePattern(const char *expression, int flags = 0) : expression_(expression), flags_(flags) {}
    LinePattern(const LinePattern &) = delete;
    LinePattern &operator=(const LinePattern &) = delete;
    ~LinePattern();

    // Returns 1 for a match, 0 for none, -ENOMEM when the expression cannot be compiled, or the matcher's negated code.
    int match(const LineReader &line);

    // Positions of the last match's group in the line.
    size_t group_begin() const { return static_cast<size_t>(matches_[1].rm_so); }
    size_t group_end() const { return static_cast<size_t>(matches_[1].rm_eo); }

private:
    const char *expression_;
    int flags_;
    bool compiled_ = false;
    regex_t regex_;
    regmatch_t matches_[2] = {};
};

// Writes the text. Returns 0, or -EIO for a short write.
int write_text(FILE *out, const char *text, size_t size);

// Checks that a regular file was read up to its end. Returns 0, or -EIO when another program rewrites the file in
// place: the content read then belongs to no version.
int check_read_whole(FILE *in);

// Copies lines until one matches `target`; that line is not copied and stays the line of `lines`. A line that matches
// `stop` (may be NULL) also ends the copy and is read again next. Adds a missing newline to the last line. Returns 1
// when the target was found, 0 when it was not, otherwise a negative code.
int copy_until(LineReader &lines, LinePattern &target, LinePattern *stop, FILE *out);

} // namespace ddal::auth
