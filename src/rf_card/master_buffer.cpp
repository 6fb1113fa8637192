#include "rf_card/master_buffer.h"

#include <cstdlib>

#include "core/log.h"
#include "rf_card/link.h"

namespace ddal::rf_card {

namespace {

// A data byte normally takes three characters of the file, "XX ".
constexpr uint32_t kCharactersPerByte = 3;

} // namespace

int MasterBuffer::master_buffer_init(uint32_t file_size)
{
    const uint32_t size = file_size / kCharactersPerByte;
    auto *data = static_cast<uint8_t *>(malloc(size != 0 ? size : 1));
    if (!data)
        return log_error(-1, "%s: ERROR: Unable to malloc memory\n", kTag);
    free(data_);
    data_ = data;
    size_ = size;
    used_ = 0;
    return 0;
}

int MasterBuffer::master_buffer_alloc(uint32_t n)
{
    if (n > left()) {
        log_line(LOG_ERR, "%s: buffer overflow\n", kTag);
        master_buffer_free();
        return -1;
    }
    used_ += n;
    return 0;
}

void MasterBuffer::master_buffer_free()
{
    if (!data_) {
        log_line(LOG_ERR, "%s: master buffer is not yet allocated\n", kTag);
        return;
    }
    free(data_);
    *this = {};
}

} // namespace ddal::rf_card
