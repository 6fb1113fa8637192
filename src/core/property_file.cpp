// Attributes, properties and settings files as texts, numbers and big-endian cells.
#include <ddal/common.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <endian.h>
#include <fcntl.h>
#include <memory>
#include <new>

#include "core/log.h"
#include "core/stream.h"
#include "core/transfer.h"
#include "core/unique_fd.h"
#include "core/unique_stream.h"

using ddal::core::read_stream;
using ddal::core::UniqueFd;
using ddal::core::UniqueStream;

namespace {

constexpr size_t kNumberTextSize = 32;

// Logs under the name of the exported operation.
int write_whole(const char *caller, const char *path, const void *data, size_t len)
{
    UniqueFd fd{open(path, O_WRONLY | O_TRUNC | O_CLOEXEC)};
    if (!fd)
        return log_errno_as(caller, "error open %s: %m\n", path);

    int result = 0;
    errno = 0;
    if (ddal_common_write_all(fd.get(), data, len) != static_cast<ssize_t>(len))
        result = log_errno_as(caller, "error write %s: %m\n", path);

    if (fd.close() != 0)
        result = log_errno_as(caller, "error close %s: %m\n", path);

    return result;
}

} // namespace

int ddal_common_write_string(const char *str, const char *path)
{
    return write_whole(__func__, path, str, strlen(str));
}

int ddal_common_write_u32val_array(unsigned n, const uint32_t *vals, const char *path)
{
    // One write for all cells: a driver takes each write as a complete value.
    const std::unique_ptr<uint32_t[]> cells{new (std::nothrow) uint32_t[n]};
    if (!cells)
        return log_errno_or(-ENOMEM, "error write %s: %m\n", path);
    std::transform(vals, vals + n, cells.get(), [](uint32_t value) { return htobe32(value); });
    return write_whole(__func__, path, cells.get(), n * sizeof(uint32_t));
}

int ddal_common_write_u32val(const uint32_t *val, const char *path)
{
    return ddal_common_write_u32val_array(1, val, path);
}

int ddal_common_read_file(void *buf, size_t n, const char *path)
{
    const UniqueStream stream{fopen(path, "re")};
    if (!stream)
        return log_errno("error open %s: %m\n", path);

    const size_t wanted = std::min(n, static_cast<size_t>(INT_MAX)); // the result is an int
    errno = 0;
    const size_t got = read_stream(stream.get(), buf, wanted);
    if (got == wanted && !feof(stream.get())) {
        if (fseeko(stream.get(), 0, SEEK_END) != 0)
            return log_errno("error seek %s: %m\n", path);
        off_t size = ftello(stream.get());
        if (size > INT_MAX) {
            errno = EOVERFLOW;
            size = -1;
        }
        if (size < 0)
            return log_errno("error tell %s: %m\n", path);
        return static_cast<int>(size);
    }
    if (!feof(stream.get()))
        return log_errno_or(DDAL_ERR_FAILURE, "error read %s: %m\n", path);
    return static_cast<int>(got);
}

int ddal_kvb_common_read_string_and_size(size_t *size, char *buf, const char *path)
{
    const size_t capacity = *size == 0 ? 0 : *size - 1;
    const int result = ddal_common_read_file(buf, capacity, path);
    if (result < 0)
        return result;
    if (*size == 0) {
        *size = static_cast<size_t>(result) + 1;
        return 0;
    }

    const size_t length = std::min(static_cast<size_t>(result), capacity);
    *size = static_cast<size_t>(result) - length;
    buf[length] = '\0';
    return static_cast<int>(length);
}

int ddal_common_read_string(size_t size, char *buf, const char *path)
{
    if (size == 0)
        return -EINVAL;
    const int result = ddal_kvb_common_read_string_and_size(&size, buf, path);
    return std::min(result, 0);
}

int ddal_kvb_common_read_string_to_u64(uint64_t *out, const char *path, int base)
{
    char text[kNumberTextSize];
    size_t size = sizeof text;
    const int result = ddal_kvb_common_read_string_and_size(&size, text, path);
    if (result < 0)
        return result;
    if (size != 0)
        return -EFBIG;

    char *end = text;
    errno = 0;
    *out = strtoull(text, &end, base);
    if (errno != 0)
        return -errno;
    if (end != text)
        return 0;
    ddal::core::note_answer(path);
    return -ENODATA;
}

int ddal_common_read_u32val_array(unsigned n, uint32_t *vals, const char *path)
{
    if (n > INT_MAX / sizeof *vals) // ddal_common_read_file cannot report such a length
        return -ENODATA;
    const size_t length = n * sizeof *vals;
    const int result = ddal_common_read_file(vals, length, path);
    if (result < 0)
        return result;
    if (static_cast<size_t>(result) != length) {
        ddal::core::note_answer(path);
        return -ENODATA;
    }
    std::transform(vals, vals + n, vals, [](uint32_t cell) { return be32toh(cell); });
    return 0;
}

int ddal_common_read_u32val(uint32_t *val, const char *path)
{
    return ddal_common_read_u32val_array(1, val, path);
}
