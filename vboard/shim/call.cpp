// Faults and the trace, which surround every wrapped call.
#include "shim.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <time.h>

#include "page/failures.h"

namespace vboard::shim {

namespace {

bool matches(const char *pattern, const char *text)
{
    size_t i = 0;
    for (; pattern[i]; ++i) {
        if (pattern[i] == '*' && !pattern[i + 1])
            return true;
        if (pattern[i] != text[i])
            return false;
    }
    return !text[i];
}

void wait_microseconds(uint32_t microseconds)
{
    timespec span{static_cast<time_t>(microseconds / 1000000u), static_cast<long>(microseconds % 1000000u) * 1000};
    syscall(SYS_nanosleep, &span, nullptr);
}

// Selects the plausible failure number `variant` of a call. Errno values count first, then short transfers (reported as
// a limit).
bool plausible(const char *call, uint32_t variant, bool interruptible, int *error, uint32_t *limit)
{
    for (const CallFailures &entry : kCallFailures) {
        if (!same(entry.call, call))
            continue;
        uint32_t n = 0;
        for (const int candidate : entry.errors) {
            if (candidate == 0)
                break;
            if (candidate == EINTR && !interruptible)
                continue;
            if (n++ == variant) {
                *error = candidate;
                return true;
            }
        }
        variant -= n;
        if (entry.shortens && variant < 2) {
            *limit = variant == 0 ? 2 : 1; // one byte, then 0 bytes
            return true;
        }
        return false;
    }
    return false;
}

} // namespace

Call::Call(const char *name, const char *board_path) : name_(name)
{
    path_[0] = '\0';
    const Page *p = page();
    if (!p || (p->fault_count.load(std::memory_order_relaxed) == 0 && p->trace.load(std::memory_order_relaxed) == 0))
        return;
    watched_ = true;
    copy_text(path_, sizeof path_, board_path);
    look();
}

Call::Call(const char *name, int fd, bool interruptible) : name_(name), interruptible_(interruptible)
{
    path_[0] = '\0';
    const Page *p = page();
    if (!p || (p->fault_count.load(std::memory_order_relaxed) == 0 && p->trace.load(std::memory_order_relaxed) == 0))
        return;
    watched_ = true;
    bool is_device = false;
    if (const Node *node = node_of(fd, &is_device))
        copy_text(path_, sizeof path_, node->path);
    else if (fd > 2 && (is_device || p->fault_count.load(std::memory_order_relaxed) != 0))
        name_of_descriptor(fd, path_, sizeof path_); // the trace has only nodes and serial lines
    look();
}

void Call::look()
{
    if (const char *line = line_behind(path_)) {
        copy_text(path_, sizeof path_, line);
        on_line_ = true;
    }
    Page &p = *page();
    traced_ = p.trace.load(std::memory_order_relaxed) != 0;
    if (p.fault_count.load(std::memory_order_acquire) == 0)
        return;
    for (FaultRule &rule : p.faults) {
        if (rule.armed.load(std::memory_order_acquire) == 0)
            continue;
        if (rule.call[0] && !same(rule.call, name_))
            continue;
        if (rule.path[0] && !matches(rule.path, path_))
            continue;
        if (rule.pid && static_cast<pid_t>(rule.pid) != process_id() && static_cast<pid_t>(rule.pid) != program_id())
            continue;
        int error = rule.error;
        uint32_t limit = rule.limit;
        if (error < 0 &&
            (!plausible(name_, 0, interruptible_, &error, &limit) || (!rule.call[0] && same(name_, "exec"))))
            continue; // a sweep counts only calls that can fail, and programs only on request
        const uint32_t number = rule.seen.fetch_add(1) + 1;
        if (number < rule.nth || (rule.count && number >= rule.nth + rule.count))
            continue;
        error = rule.error;
        limit = rule.limit;
        if (error < 0) {
            error = 0;
            if (!plausible(name_, rule.variant, interruptible_, &error, &limit)) {
                rule.exhausted = 1;
                continue;
            }
        }
        copy_text(rule.hit_call, sizeof rule.hit_call, name_);
        copy_text(rule.hit_path, sizeof rule.hit_path, path_);
        rule.hit_error = error;
        rule.hit_limit = limit;
        rule.fired.fetch_add(1, std::memory_order_release);
        if (rule.delay_us)
            wait_microseconds(rule.delay_us);
        error_ = error;
        limit_ = limit;
        return;
    }
}

bool Call::fails()
{
    if (error_ == 0)
        return false;
    const int error = error_;
    errno = error;
    done(-1);
    errno = error;
    return true;
}

bool Call::limits(size_t *length)
{
    if (limit_ == 0)
        return false;
    if (*length > limit_ - 1)
        *length = limit_ - 1;
    return true;
}

void Call::about(uint64_t offset, uint64_t request, const void *bytes, size_t length)
{
    offset_ = offset;
    request_ = request;
    bytes_ = bytes;
    length_ = length;
}

void append_to_board(const char *name, const char *bytes, size_t length, uint64_t limit, const char *last)
{
    char path[320];
    copy_text(path, sizeof path, page()->private_dir);
    append(path, sizeof path, name);
    constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC;
    long fd = syscall(SYS_openat, AT_FDCWD, path, kFlags, 0644);
    if (fd < 0 && errno == EMFILE) {
        // The program has used up its descriptors. The board must still log its next calls.
        uint64_t limits[2];
        syscall(SYS_prlimit64, 0, RLIMIT_NOFILE, nullptr, limits);
        const uint64_t raised[2] = {limits[1], limits[1]};
        syscall(SYS_prlimit64, 0, RLIMIT_NOFILE, raised, nullptr);
        fd = syscall(SYS_openat, AT_FDCWD, path, kFlags, 0644);
        syscall(SYS_prlimit64, 0, RLIMIT_NOFILE, limits, nullptr);
    }
    if (fd < 0)
        return;
    const auto size = static_cast<uint64_t>(syscall(SYS_lseek, fd, 0L, SEEK_END));
    if (size < limit)
        syscall(SYS_write, fd, bytes, length);
    if (size < limit && size + length >= limit)
        syscall(SYS_write, fd, last, length_of(last));
    syscall(SYS_close, fd);
}

namespace {

// Builds one trace line.
class Line {
public:
    void text(const char *t)
    {
        while (*t && end_ + 4 < sizeof buffer_)
            buffer_[end_++] = *t++;
    }
    void number(uint64_t v)
    {
        char digits[24];
        digits[23] = '\0';
        text(format_number(v, digits + 23));
    }
    void field(const char *name, uint64_t v)
    {
        text(",\"");
        text(name);
        text("\":");
        number(v);
    }
    void signed_field(const char *name, int64_t v)
    {
        text(",\"");
        text(name);
        text("\":");
        if (v < 0)
            text("-");
        number(static_cast<uint64_t>(v < 0 ? -v : v));
    }
    void quoted(const char *name, const char *value)
    {
        text(",\"");
        text(name);
        text("\":\"");
        for (const char *p = value; *p; ++p) {
            const auto c = static_cast<unsigned char>(*p);
            char one[7] = {static_cast<char>(c), '\0'};
            if (c == '"' || c == '\\') {
                one[0] = '\\';
                one[1] = static_cast<char>(c);
                one[2] = '\0';
            } else if (c < 0x20 || c >= 0x7f) {
                constexpr char kHex[] = "0123456789abcdef";
                const char escaped[] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 15], '\0'};
                copy_text(one, sizeof one, escaped);
            }
            text(one);
        }
        text("\"");
    }
    void hex(const char *name, const void *bytes, size_t length)
    {
        constexpr char kHex[] = "0123456789abcdef";
        constexpr size_t kMost = 600;
        text(",\"");
        text(name);
        text("\":\"");
        const auto *b = static_cast<const unsigned char *>(bytes);
        for (size_t i = 0; i < length && i < kMost; ++i) {
            const char two[] = {kHex[b[i] >> 4], kHex[b[i] & 15], '\0'};
            text(two);
        }
        text("\"");
    }
    void write_to_trace()
    {
        buffer_[end_++] = '}';
        buffer_[end_++] = '\n';
        append_to_board("/trace.jsonl", buffer_, end_, kTraceLimit, kTraceEnd);
    }

private:
    char buffer_[3072];
    size_t end_ = 0;
};

} // namespace

long Call::done(long result)
{
    const bool is_of_board = on_line_ || (path_[0] && node_by_path(path_)) || same(name_, "exec");
    if (!traced_ || !is_of_board)
        return result;
    KeepErrno keep;
    const int error = errno;
    timespec now{};
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    Line line;
    line.text("{\"v\":1");
    line.field("ns", static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec));
    line.field("pid", static_cast<uint64_t>(process_id()));
    line.field("tid", static_cast<uint64_t>(thread_id()));
    line.quoted("call", name_);
    line.quoted("path", path_);
    if (offset_ != UINT64_MAX)
        line.field("offset", offset_);
    if (request_ != UINT64_MAX)
        line.field("request", request_);
    if (bytes_)
        line.hex("data", bytes_, length_);
    line.signed_field("result", result);
    if (result < 0)
        line.signed_field("errno", error);
    line.write_to_trace();
    return result;
}

} // namespace vboard::shim
