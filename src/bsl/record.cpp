#include "bsl/record.h"

#include <array>

#include "bsl/crc.h"
#include "bsl/link.h"
#include "bsl/master_buffer.h"
#include "core/log.h"

namespace ddal::bsl {

namespace {

std::array<bsl_record, kRecordsMax> pool;
uint32_t taken;
bsl_record *head;
bsl_record *active;

// The tail of the list is always the active record.
void append_slot()
{
    bsl_record *record = &pool[taken++];
    record->prev = active;
    record->next = nullptr;
    if (active)
        active->next = record;
    else
        head = record;
    active = record;
}

} // namespace

int record_create(uint32_t address)
{
    if (active && active->length != 0 && master_buffer_alloc(active->length) != 0)
        return log_error(-1, "%s: Unable to reserve %d bytes of memory\n", kTag, active->length);
    if (!active || active->length != 0) {
        if (taken == pool.size())
            return log_error(-1, "%s: ERROR: too many records, at most %u\n", kTag, kRecordsMax);
        append_slot();
    }

    active->address = address;
    active->length = 0;
    active->crc = kCrcStart;
    active->data = master_buffer_get();
    return 0;
}

int record_append(uint8_t byte)
{
    if (!active)
        return log_error(-1, "%s: No active record\n", kTag);
    // One-digit tokens take two characters per byte, so the data of a file can outgrow the master buffer.
    const RecordTail tail = record_tail();
    if (tail.room == 0)
        return log_error(-1, "%s: buffer overflow\n", kTag);
    *tail.end = byte;
    record_extend(1);
    return 0;
}

bsl_record *record_head()
{
    return head;
}

RecordTail record_tail()
{
    if (!active)
        return {nullptr, 0};
    return {active->data + active->length, master_buffer_left() - active->length};
}

void record_extend(uint32_t n)
{
    active->crc = crc_update(active->crc, active->data + active->length, n);
    active->length += n;
}

void unlink_records(bsl_record *first)
{
    for (bsl_record *record = first; record;) {
        bsl_record *next = record->next;
        record->next = nullptr;
        record->prev = nullptr;
        record = next;
    }
    head = nullptr;
    active = nullptr;
    taken = 0;
}

} // namespace ddal::bsl

// Never fails: the record and its data belong to the caller.
void bsl_generate_pattern_record(struct bsl_record *record, uint8_t *data, uint32_t address, uint32_t length)
{
    *record = {address, length, bsl_crc_calc(data, length), data, nullptr, nullptr};
}
