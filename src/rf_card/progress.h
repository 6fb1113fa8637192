// Progress of a long operation on the RF card, for its caller.
#pragma once

#include <ddal/ext.h>

#include "core/foreign_call.h"

namespace ddal::rf_card {

class Progress {
public:
    Progress() = default;
    Progress(ddal_ext_rfcard_progress callback, void *context) : report_(callback), context_(context) {}

    void begin(ddal_ext_rfcard_phase phase, uint32_t total = 0)
    {
        phase_ = phase;
        total_ = total;
        done_ = 0;
        report();
    }

    void advance(uint32_t bytes)
    {
        done_ = bytes < total_ - done_ ? done_ + bytes : total_;
        report();
    }

private:
    void report() const
    {
        const core::CancellationHold hold; // a cancellation must not interrupt the work on the card
        if (report_)
            report_(context_, phase_, done_, total_);
    }

    ddal_ext_rfcard_progress report_ = nullptr;
    void *context_ = nullptr;
    ddal_ext_rfcard_phase phase_ = DDAL_EXT_RFCARD_ENTER;
    uint32_t done_ = 0;
    uint32_t total_ = 0;
};

} // namespace ddal::rf_card
