// Part of every test program of a sanitizer build. The board's programs then start with the sanitizer's runtime in
// front, too; what a shell or its tools leave allocated at their end is not to become their exit status.
#include <cstdlib>
#include <string>

namespace {

[[gnu::constructor]] void keep_leaks_of_children_apart()
{
    const char *present = getenv("ASAN_OPTIONS");
    setenv("ASAN_OPTIONS", (std::string(present ? present : "") + ":detect_leaks=0").c_str(), 1);
}

} // namespace
