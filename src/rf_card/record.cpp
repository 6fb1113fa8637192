#include "rf_card/record.h"

#include "core/log.h"
#include "rf_card/crc.h"
#include "rf_card/link.h"

namespace ddal::rf_card {

void RecordList::append_slot()
{
    bsl_record *record = &pool_[taken_++];
    record->prev = active_;
    record->next = nullptr;
    if (active_)
        active_->next = record;
    else
        head_ = record;
    active_ = record;
}

int RecordList::record_create(uint32_t address)
{
    if (active_ && active_->length != 0 && data.master_buffer_alloc(active_->length) != 0)
        return log_error(-1, "%s: Unable to reserve %d bytes of memory\n", kTag, active_->length);
    if (!active_ || active_->length != 0) {
        if (taken_ == pool_.size())
            return log_error(-1, "%s: ERROR: too many records, at most %u\n", kTag, kRecordsMax);
        append_slot();
    }

    active_->address = address;
    active_->length = 0;
    active_->crc = kCrcStart;
    active_->data = data.next();
    return 0;
}

int RecordList::record_append(uint8_t byte)
{
    if (!active_)
        return log_error(-1, "%s: No active record\n", kTag);
    // One-digit tokens take two characters per byte, so the data of a file can outgrow the master buffer.
    const RecordTail end = tail();
    if (end.room == 0)
        return log_error(-1, "%s: buffer overflow\n", kTag);
    *end.end = byte;
    extend(1);
    return 0;
}

RecordTail RecordList::tail() const
{
    if (!active_)
        return {nullptr, 0};
    return {active_->data + active_->length, data.left() - active_->length};
}

void RecordList::extend(uint32_t n)
{
    active_->crc = crc_update(active_->crc, active_->data + active_->length, n);
    active_->length += n;
}

void RecordList::unlink(bsl_record *first)
{
    for (bsl_record *record = first; record;) {
        bsl_record *next = record->next;
        record->next = nullptr;
        record->prev = nullptr;
        record = next;
    }
    head_ = nullptr;
    active_ = nullptr;
    taken_ = 0;
}

} // namespace ddal::rf_card

// Never fails: the record and its data belong to the caller.
void bsl_generate_pattern_record(struct bsl_record *record, uint8_t *data, uint32_t address, uint32_t length)
{
    *record = {address, length, bsl_crc_calc(data, length), data, nullptr, nullptr};
}
