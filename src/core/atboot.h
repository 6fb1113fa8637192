// Table of the actions at system start. A family registers an action next to the action's code:
//
//     DDAL_ATBOOT_HOOK(leds, restore_leds, "Restore LEDs global state settings")
//
// The linker gathers the entries of all folders in one section, in an unspecified order. The place of an entry decides
// when it runs. A family that is not linked leaves a gap, and the other entries keep their places.
#pragma once

namespace ddal::core {

struct ddal_atboot_entry {
    int (*action)();
    const char *description;
};

enum class AtbootPlace { leds, password_history, identity_fixup, root_access, alarm_gpios };

constexpr AtbootPlace kAtbootOrder[] = {AtbootPlace::leds, AtbootPlace::password_history, AtbootPlace::identity_fixup,
                                        AtbootPlace::root_access, AtbootPlace::alarm_gpios};

struct AtbootHook {
    AtbootPlace place;
    ddal_atboot_entry entry;
};

} // namespace ddal::core

// Use at namespace scope, once per function. The section holds pointers instead of records: their size leaves no gaps
// between the shares of the object files.
#define DDAL_ATBOOT_HOOK(place, function, description)                                                                 \
    static constexpr ddal::core::AtbootHook atboot_hook_##function = {ddal::core::AtbootPlace::place,                  \
                                                                      {function, description}};                        \
    [[gnu::section("ddal_atboot"), gnu::used]] static const ddal::core::AtbootHook *const atboot_entry_##function =    \
        &atboot_hook_##function;
