// Paths made of fixed text around a variable part.
#pragma once

#include <cstdio>

namespace ddal::auth {

struct Path {
    char text[4096];

    // Joins the three parts. Returns false when the result does not fit.
    bool build(const char *before, const char *middle, const char *after)
    {
        const int n = snprintf(text, sizeof text, "%s%s%s", before, middle, after);
        return n >= 0 && static_cast<size_t>(n) < sizeof text;
    }
};

} // namespace ddal::auth
