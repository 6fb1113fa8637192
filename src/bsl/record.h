// The records of the image that is being parsed: a list in file order, from a fixed pool.
#pragma once

#include <cstddef>
#include <cstdint>

#include <ddal/bsl.h>

namespace ddal::bsl {

constexpr uint32_t kRecordsMax = 256;

int record_create(uint32_t address); // returns 0 or -1
int record_append(uint8_t byte);     // returns 0 or -1
bsl_record *record_head();

// The tail of the active record, for several bytes at once. The room is 0 without an active record.
struct RecordTail {
    uint8_t *end;
    uint32_t room;
};
RecordTail record_tail();
// Appends n bytes that the caller has stored at the tail; at most its room.
void record_extend(uint32_t n);

// Removes the records from `first` on from list and pool.
void unlink_records(bsl_record *first);

} // namespace ddal::bsl
