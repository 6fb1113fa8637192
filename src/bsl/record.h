// The records of the image that is being parsed: a list in file order, from a fixed pool.
#pragma once

#include <cstddef>
#include <cstdint>

#include <ddal/bsl.h>

namespace ddal::bsl {

constexpr uint32_t kRecordsMax = 256;

int record_create(uint32_t address); // 0 or -1
int record_append(uint8_t byte);     // 0 or -1
bsl_record *record_head();

// Where the active record grows, for a run of bytes at once; room 0 when there is no active record.
struct RecordTail {
    uint8_t *end;
    uint32_t room;
};
RecordTail record_tail();
// Takes over n bytes that were stored at the tail, at most its room.
void record_extend(uint32_t n);

// Empties the list from `first` on, and the pool with it.
void unlink_records(bsl_record *first);

} // namespace ddal::bsl
