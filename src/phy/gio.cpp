#include "phy/gio.h"

#include <dlfcn.h>

#include "core/log.h"

namespace ddal::phy {

namespace {

constexpr const char *kLibrary = "libgio-2.0.so.0"; // loads GObject and GLib too

template <typename Function>
bool find(void *library, const char *name, Function *function)
{
    *function = reinterpret_cast<Function>(dlsym(library, name));
    if (!*function)
        log_line(LOG_ERR, "%s has no %s\n", kLibrary, name);
    return *function;
}

} // namespace

const Gio *load_gio()
{
    static Gio gio;
    // GLib keeps threads and types that must not be unloaded.
    void *const library = dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!library)
        return log_error(nullptr, "cannot load %s: %s\n", kLibrary, dlerror());
#define DDAL_GIO_FIND(name)                                                                                            \
    if (!find(library, "g_" #name, &gio.name))                                                                         \
        return nullptr;
    DDAL_GIO_CALLS(DDAL_GIO_FIND)
#undef DDAL_GIO_FIND
    return &gio;
}

} // namespace ddal::phy
