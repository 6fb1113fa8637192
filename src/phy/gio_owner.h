// Owners of GLib values. They release through the loaded library, and keep errno.
#pragma once

#include <cerrno>
#include <memory>

#include "phy/event_loop.h"

namespace ddal::phy {

template <auto Call>
struct GioRelease {
    void operator()(auto *value) const
    {
        const int saved_errno = errno; // says why a registration failed
        (loaded_gio()->*Call)(value);
        errno = saved_errno;
    }
};

template <typename Object>
using UniqueObject = std::unique_ptr<Object, GioRelease<&Gio::object_unref>>;
using UniqueVariant = std::unique_ptr<GVariant, GioRelease<&Gio::variant_unref>>;
using UniqueError = std::unique_ptr<GError, GioRelease<&Gio::error_free>>;
using UniqueText = std::unique_ptr<char, GioRelease<&Gio::free>>;
using UniqueHashTable = std::unique_ptr<GHashTable, GioRelease<&Gio::hash_table_destroy>>;

// Makes another owner of an object.
template <typename Object>
UniqueObject<Object> share(Object *object)
{
    loaded_gio()->object_ref(object);
    return UniqueObject<Object>{object};
}

} // namespace ddal::phy
