#include "command.h"

#include "page/escapes.h"
#include "page/needed.h"
#include "shim.h"

namespace vboard::shim {

namespace {

bool same_name(const char *entry, const char *wanted)
{
    while (*wanted && *wanted != '=' && *entry == *wanted) {
        ++entry;
        ++wanted;
    }
    return *entry == '=' && *wanted == '=';
}

bool is_board_entry(const char *entry)
{
    const Page &p = *page();
    for (uint32_t i = 0; i < p.environment_count; ++i)
        if (same_name(entry, p.environment[i]))
            return true;
    return false;
}

bool needs_emulator(const char *host_path)
{
    if (!page()->emulator[0])
        return false;
    const KeepErrno keep;
    const uint16_t machine = machine_of(host_path);
    return machine != EM_NONE && machine != page()->native_machine;
}

// A list of pointers of fixed size, closed by a null pointer.
class List {
public:
    List(char **entries, size_t size) : entries_(entries), size_(size) { entries_[0] = nullptr; }
    bool add(const char *entry)
    {
        if (count_ + 1 >= size_) {
            errno = E2BIG;
            return false;
        }
        entries_[count_++] = const_cast<char *>(entry);
        entries_[count_] = nullptr;
        return true;
    }

private:
    char **entries_;
    size_t size_;
    size_t count_ = 0;
};

} // namespace

bool Command::make(const char *host_path, char *const *given_arguments, char *const *given_environment)
{
    const bool emulated = needs_emulator(host_path);
    List list(environment, kMaxEnvironmentEntries);
    for (; given_environment && *given_environment; ++given_environment)
        if (!is_board_entry(*given_environment) && !list.add(*given_environment))
            return false;
    if (emulated)
        return emulate(host_path, given_arguments);
    const Page &p = *page();
    const bool with_runtime = p.runtime[0] && needs_library(host_path, p.runtime);
    if (!list.add(with_runtime ? p.runtime_preload : p.environment[0]))
        return false;
    for (uint32_t i = 1; i < p.environment_count; ++i)
        if (!list.add(p.environment[i]))
            return false;
    program = host_path;
    arguments = given_arguments;
    return true;
}

bool Command::emulate(const char *host_path, char *const *given)
{
    const Page &p = *page();
    program = p.emulator;
    arguments = emulation_;
    List list(emulation_, kMaxArguments + 1);
    bool fits = true;
    for (const char *word = p.emulator; *word; word += length_of(word) + 1)
        fits = list.add(word) && fits;
    for (uint32_t i = 0; i < p.environment_count; ++i)
        fits = list.add("-E") && list.add(p.environment[i]) && fits;
    if (given && given[0]) // a program's name may differ from its path
        fits = list.add("-0") && list.add(*given++) && fits;
    fits = list.add(host_path) && fits;
    for (; given && *given; ++given)
        fits = list.add(*given) && fits;
    return fits;
}

} // namespace vboard::shim
