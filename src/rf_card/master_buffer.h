// One block for the data of all records of an image, back to back.
#pragma once

#include <cstdint>

namespace ddal::rf_card {

// Members that log have the names that their lines show. The block outlives the call that
// parses an image, so that no destructor frees it.
class MasterBuffer {
public:
    int master_buffer_init(uint32_t file_size); // returns 0 or -1
    int master_buffer_alloc(uint32_t n);        // returns 0 or -1
    void master_buffer_free();

    uint8_t *next() const { return data_ + used_; } // first byte behind the records
    uint32_t left() const { return size_ - used_; } // bytes from there to the end
    bool held() const { return data_ != nullptr; }

private:
    uint8_t *data_ = nullptr;
    uint32_t size_ = 0;
    uint32_t used_ = 0;
};

} // namespace ddal::rf_card
