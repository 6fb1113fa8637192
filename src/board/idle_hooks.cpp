// Actions at system start that do nothing on this board; start-up logs expect to see them run.
#include "core/atboot.h"

namespace {

int fix_identity()
{
    return 0;
}

int export_alarm_gpios()
{
    return 0;
}

} // namespace

DDAL_ATBOOT_HOOK(identity_fixup, fix_identity, "Fix EID Discrepancies")
DDAL_ATBOOT_HOOK(alarm_gpios, export_alarm_gpios, "export ext alarm GPIOs")
