#include "bsl/master_buffer.h"

#include <cstdlib>

#include "bsl/link.h"
#include "core/log.h"

namespace ddal::bsl {

namespace {

// A data byte normally takes three characters of the file, "XX ".
constexpr uint32_t kCharactersPerByte = 3;

struct MasterBuffer {
    uint8_t *data = nullptr;
    uint32_t size = 0;
    uint32_t used = 0;
};

MasterBuffer buffer;

} // namespace

int master_buffer_init(uint32_t file_size)
{
    const uint32_t size = file_size / kCharactersPerByte;
    auto *data = static_cast<uint8_t *>(malloc(size != 0 ? size : 1));
    if (!data)
        return log_error(-1, "%s: ERROR: Unable to malloc memory\n", kTag);
    free(buffer.data);
    buffer = {data, size, 0};
    return 0;
}

uint8_t *master_buffer_get()
{
    return buffer.data + buffer.used;
}

uint32_t master_buffer_left()
{
    return buffer.size - buffer.used;
}

int master_buffer_alloc(uint32_t n)
{
    if (n > master_buffer_left()) {
        log_line(LOG_ERR, "%s: buffer overflow\n", kTag);
        master_buffer_free();
        return -1;
    }
    buffer.used += n;
    return 0;
}

void master_buffer_free()
{
    if (!buffer.data) {
        log_line(LOG_ERR, "%s: master buffer is not yet allocated\n", kTag);
        return;
    }
    free(buffer.data);
    buffer = {};
}

bool master_buffer_held()
{
    return buffer.data != nullptr;
}

} // namespace ddal::bsl
