// The records of the image that is being parsed: a list in file order, from a fixed pool.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include <ddal/bsl.h>

#include "rf_card/master_buffer.h"

namespace ddal::rf_card {

constexpr uint32_t kRecordsMax = 256;

// The tail of the active record, for several bytes at once. The room is 0 without an active record.
struct RecordTail {
    uint8_t *end;
    uint32_t room;
};

// Members that log have the names that their lines show.
class RecordList {
public:
    int record_create(uint32_t address); // returns 0 or -1
    int record_append(uint8_t byte);     // returns 0 or -1

    bsl_record *head() const { return head_; }
    RecordTail tail() const;
    // Appends n bytes that the caller has stored at the tail; at most its room.
    void extend(uint32_t n);
    // Removes the records from `first` on from list and pool.
    void unlink(bsl_record *first);

    MasterBuffer data; // of all records

private:
    void append_slot();

    std::array<bsl_record, kRecordsMax> pool_{};
    uint32_t taken_ = 0;
    bsl_record *head_ = nullptr;
    bsl_record *active_ = nullptr; // the tail of the list
};

} // namespace ddal::rf_card
