#include "cli/loaders.h"

#include <cstdlib>

#include "daemon/text_file.h"
#include "page/escapes.h"

namespace vboard {

namespace fs = std::filesystem;

namespace {

// The folder below which the emulator looks for its guest's files.
fs::path guest_root(const std::vector<std::string> &emulator)
{
    for (size_t i = 0; i + 1 < emulator.size(); ++i)
        if (emulator[i] == "-L")
            return emulator[i + 1];
    const char *named = std::getenv("QEMU_LD_PREFIX");
    return named ? named : "/";
}

// The loader keeps its "$LIB" as a text: a distribution that uses another folder has another loader under the same
// name.
bool expands_to(const fs::path &loader, const std::string &libraries)
{
    return read_text(loader).find('\0' + libraries + '\0') != std::string::npos;
}

bool finds_all(const Loader &loader, const fs::path &root, const fs::path &prefix,
               const std::vector<std::string> &libraries)
{
    for (const std::string &library : libraries)
        if (machine_of((prefix / loader.libraries / "vboard" / library).c_str()) != loader.machine)
            return false;
    return expands_to(root / fs::path(loader.path).relative_path(), loader.libraries);
}

} // namespace

uint32_t loaders_that_find(const fs::path &prefix, const std::vector<std::string> &libraries,
                           const std::vector<std::string> &emulator, uint16_t native_machine)
{
    uint32_t found = 0;
    uint32_t bit = 1;
    for (const Loader &loader : kLoaders) {
        const bool is_native = loader.machine == native_machine;
        if ((is_native || !emulator.empty()) &&
            finds_all(loader, is_native ? fs::path("/") : guest_root(emulator), prefix, libraries))
            found |= bit;
        bit <<= 1;
    }
    return found;
}

} // namespace vboard
