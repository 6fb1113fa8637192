// A caller's array that is filled while the entries are counted.
#pragma once

#include <cerrno>
#include <cstdint>

namespace ddal::ethswitch {

template <typename Entry>
class BoundedList {
public:
    BoundedList(Entry *entries, uint32_t capacity) : entries_(entries), capacity_(capacity) {}

    void add(const Entry &entry)
    {
        if (count_ < capacity_)
            entries_[count_] = entry;
        count_++;
    }

    uint32_t count() const { return count_; }

    // Stores the number of entries in *size and returns 0. If entries did not fit, stores their number and returns
    // -ENOMEM.
    int settle(uint32_t *size) const
    {
        const bool fits = count_ <= capacity_;
        *size = fits ? count_ : count_ - capacity_;
        return fits ? 0 : -ENOMEM;
    }

private:
    Entry *entries_;
    uint32_t capacity_;
    uint32_t count_ = 0;
};

} // namespace ddal::ethswitch
