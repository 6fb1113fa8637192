// Bodies of the operations that this board lacks: one for each result, shared by all their names.
#include <cerrno>

#include <ddal/export.h>

extern "C"
{

[[gnu::visibility("hidden")]] int ddal_unsupported_body() noexcept
{
    return -ENOSYS;
}

[[gnu::visibility("hidden")]] int ddal_zero_body() noexcept
{
    return 0;
}

#define DDAL_SHARED_BODY(name, body) DDAL_API int name() noexcept __attribute__((alias(#body)));
#include "unsupported_names.inc"
#undef DDAL_SHARED_BODY

} // extern "C"
