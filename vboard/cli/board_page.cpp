#include "cli/board_page.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <iterator>
#include <sstream>
#include <system_error>

#include "cli/loaders.h"
#include "daemon/board_file.h"
#include "daemon/control.h"
#include "page/escapes.h"

namespace vboard {

namespace fs = std::filesystem;

namespace {

template <size_t N>
void put(char (&to)[N], const std::string &text)
{
    if (text.size() >= N)
        throw ClientError("too long: " + text);
    std::memcpy(to, text.c_str(), text.size() + 1);
}

int64_t now_ns(clockid_t clock)
{
    timespec now;
    clock_gettime(clock, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

// The loader ignores a missing preload library. Run nothing then: the program would reach the machine.
std::string preload_entry(const std::string &library)
{
    const fs::path native = own_prefix() / VBOARD_LIBDIR / library;
    if (!fs::exists(native))
        throw ClientError("this installation lacks " + native.string() + "; vboard runs nothing without it");
    return (own_prefix() / "$LIB" / "vboard" / library).string();
}

std::string preload_list(const Words &libraries, const RunOptions &options)
{
    std::string list;
    for (const std::string &library : options.preload)
        list += library + ":";
    for (const std::string &library : libraries)
        list += preload_entry(library) + ":";
    list.pop_back();
    return list;
}

Words split(const std::string &text)
{
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

// The emulator's path and options, each closed by NUL.
std::string emulator_list(const std::string &line)
{
    Words words = split(line);
    if (!words.empty())
        words[0] = find_program(words[0]);
    std::string list;
    for (const std::string &word : words)
        list += word + '\0';
    return list;
}

} // namespace

fs::path own_prefix()
{
    return fs::read_symlink("/proc/self/exe").parent_path().parent_path();
}

std::string find_program(const std::string &name)
{
    if (name.find('/') != std::string::npos)
        return name;
    const char *path = std::getenv("PATH");
    std::string rest = path ? path : "/usr/bin:/bin";
    for (size_t at = 0; at <= rest.size();) {
        const size_t end = std::min(rest.find(':', at), rest.size());
        std::string candidate = rest.substr(at, end - at) + "/" + name;
        if (access(candidate.c_str(), X_OK) == 0)
            return candidate;
        at = end + 1;
    }
    return name;
}

Words writable_places(const fs::path &directory, const RunOptions &options)
{
    Words places{fs::weakly_canonical(directory)};
    for (const std::string &place : options.writable) {
        if (!fs::exists(place))
            throw ClientError("--writable: " + place + " does not exist");
        places.push_back(fs::canonical(place));
    }
    const std::string working = fs::current_path();
    if (working.rfind("/etc", 0) != 0 && working.rfind("/usr", 0) != 0 && working.rfind("/var", 0) != 0 &&
        working.rfind("/root", 0) != 0)
        places.push_back(working);
    std::erase(places, "/");
    return places;
}

void write_page(const fs::path &directory, const RunOptions &options)
{
    auto page = std::make_unique<Page>();
    page->magic = kPageMagic;
    page->version = kPageVersion;
    put(page->root, directory / "root");
    put(page->private_dir, directory / ".vboard");
    Words libraries = read_board_file(directory / "board.conf").libraries;
    libraries.emplace_back("libvboard.so");
    const std::string preload = preload_list(libraries, options);
    put(page->environment[0], "LD_PRELOAD=" + preload);
    put(page->runtime, fs::path(options.runtime).filename());
    put(page->runtime_preload, "LD_PRELOAD=" + options.runtime + ":" + preload);
    put(page->environment[1], "VBOARD_PAGE=" + (directory / ".vboard/page").string());
    page->environment_count = 2;
    put(page->emulator, emulator_list(options.emulator));
    page->native_machine = machine_of("/proc/self/exe");
    page->loaders = loaders_that_find(own_prefix(), libraries, split(options.emulator), page->native_machine);
    page->speed = std::max(options.speed, 1u);
    page->epoch_ns[0] = now_ns(CLOCK_REALTIME);
    page->epoch_ns[1] = now_ns(CLOCK_MONOTONIC);
    page->trace.store(options.trace);
    for (const std::string &place : writable_places(directory, options))
        if (page->writable_count < kMaxWritable)
            put(page->writable[page->writable_count++], place);
    const fs::path path = directory / ".vboard/page";
    const fs::path fresh = directory / ".vboard/page.new";
    const UniqueFd fd{open(fresh.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)};
    if (!fd || write(fd.get(), page.get(), sizeof(Page)) != sizeof(Page))
        throw std::system_error(errno, std::generic_category(), fresh);
    fs::rename(fresh, path);
}

} // namespace vboard
