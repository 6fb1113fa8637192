#include "core/atboot.h"

#include <ddal/atboot.h>
#include <span>

#include "core/log.h"

using ddal::core::AtbootHook;
using ddal::core::kAtbootOrder;

// Bounds of the section, which the linker defines. They are null where no hook is linked.
extern "C"
{
[[gnu::weak, gnu::visibility("hidden")]] extern const AtbootHook *const __start_ddal_atboot[];
[[gnu::weak, gnu::visibility("hidden")]] extern const AtbootHook *const __stop_ddal_atboot[];
}

int ddal_atboot_run()
{
    const std::span hooks(__start_ddal_atboot, __stop_ddal_atboot);
    int result = 0;
    for (const auto place : kAtbootOrder) {
        for (const AtbootHook *hook : hooks) {
            if (hook->place != place)
                continue;
            log_line(LOG_INFO, "Running '%s'...\n", hook->entry.description);
            const int returned = hook->entry.action();
            if (returned != 0) {
                log_line(LOG_ERR, "'%s' returned %d\n", hook->entry.description, returned);
                result = returned;
            }
        }
    }
    return result;
}
