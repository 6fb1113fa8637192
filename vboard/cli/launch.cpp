#include "cli/launch.h"

#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <iostream>
#include <iterator>
#include <sstream>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>

#include "cli/board_directory.h"
#include "cli/loaders.h"
#include "cli/network.h"
#include "cli/program.h"
#include "daemon/board.h"
#include "daemon/server.h"
#include "page/escapes.h"
#include "page/needed.h"

namespace vboard {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const std::string &what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

fs::path own_prefix()
{
    return fs::read_symlink("/proc/self/exe").parent_path().parent_path();
}

// "net:[4026531840]"
std::string own_network()
{
    return fs::read_symlink("/proc/self/ns/net");
}

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

void add_writable(Page &page, const fs::path &place)
{
    const std::string path = fs::weakly_canonical(place);
    if (path == "/" || page.writable_count >= kMaxWritable)
        return;
    put(page.writable[page.writable_count], path);
    ++page.writable_count;
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

// Writes the page that every process of the board maps.
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
    if (options.real_net)
        put(page->network, own_network());
    page->epoch_ns[0] = now_ns(CLOCK_REALTIME);
    page->epoch_ns[1] = now_ns(CLOCK_MONOTONIC);
    page->trace.store(options.trace);
    add_writable(*page, directory);
    for (const std::string &place : options.writable)
        add_writable(*page, place);
    const std::string working = fs::current_path();
    if (working.rfind("/etc", 0) != 0 && working.rfind("/usr", 0) != 0 && working.rfind("/var", 0) != 0 &&
        working.rfind("/root", 0) != 0)
        add_writable(*page, working);
    const fs::path path = directory / ".vboard/page";
    const fs::path fresh = directory / ".vboard/page.new";
    const UniqueFd fd{open(fresh.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)};
    if (!fd || write(fd.get(), page.get(), sizeof(Page)) != sizeof(Page))
        fail(fresh);
    fs::rename(fresh, path);
}

// Throws when an option has no effect on a board that runs already.
void check_options_on(const Page &page, const RunOptions &options)
{
    const auto refuse = [](const std::string &option) {
        throw ClientError("the board runs already: " + option + " is for the program that starts it");
    };
    if (options.speed != 0 && options.speed != page.speed)
        refuse("--speed (it is at " + std::to_string(page.speed) + ")");
    if (!options.preload.empty())
        refuse("--preload");
    if (!options.writable.empty())
        refuse("--writable");
    if (!options.runtime.empty())
        refuse("--runtime");
    if (!options.trace)
        refuse("--no-trace");
}

// Runs the daemon. It ends with the last program, and nothing of it may outlive the board.
[[noreturn]] void be_daemon(const fs::path &directory, int ready)
{
    prctl(PR_SET_NAME, "vboardd");
    setsid();
    // Close the inherited descriptors except `ready`: the next `vboard run` waits for the lock on one of them.
    close_range(3, static_cast<unsigned>(ready) - 1, 0);
    close_range(static_cast<unsigned>(ready) + 1, ~0u, 0);
    const int log = open((directory / ".vboard/daemon.log").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(null, 0);
    dup2(log, 1);
    dup2(log, 2);
    unblock_signals();
    signal(SIGPIPE, SIG_IGN);
    signal(SIGINT, SIG_IGN);
    // The previous daemon may still be removing its sockets. Its end releases the lock.
    const int life = open((directory / ".vboard/life").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (life < 0 || flock(life, LOCK_EX) != 0)
        _exit(1);
    try {
        Loop loop;
        Board board(directory, loop);
        Server server(board);
        if (write(ready, "", 1) != 1)
            _exit(1);
        close(ready);
        loop.run();
    } catch (const std::exception &error) {
        const std::string text = error.what();
        static_cast<void>(!write(ready, text.data(), text.size()));
        std::cerr << text << std::endl;
        _exit(1);
    }
    _exit(0);
}

void start_daemon(const fs::path &directory)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        fail("pipe");
    UniqueFd from{ends[0]};
    UniqueFd to{ends[1]};
    const pid_t child = fork();
    if (child < 0)
        fail("fork");
    if (child == 0) {
        // A grandchild, so that the process that starts a board need not reap its daemon.
        if (fork() == 0)
            be_daemon(directory, to.get());
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    to = UniqueFd{};
    char text[512];
    const ssize_t n = read(from.get(), text, sizeof text);
    if (n != 1 || text[0] != '\0')
        throw ClientError("the board in " + directory.string() +
                          " cannot start: " + std::string(text, n > 0 ? static_cast<size_t>(n) : 0));
}

// Joins the board of a directory and starts it first if needed. A lock admits one caller at a time.
std::unique_ptr<Client> join(const fs::path &directory, const RunOptions &options)
{
    const UniqueFd lock{open((directory / ".vboard/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)};
    if (!lock || flock(lock.get(), LOCK_EX) != 0)
        fail((directory / ".vboard/lock").string());
    std::unique_ptr<Client> client;
    try {
        client = std::make_unique<Client>(directory);
        client->hold();
    } catch (const ClientError &) { // the board does not run, or its last program has just ended
        write_page(directory, options);
        start_daemon(directory);
        client = std::make_unique<Client>(directory);
        client->hold();
        return client;
    }
    check_options_on(client->page(), options);
    return client;
}

// Returns the command to execute. An emulated program receives its environment through an option of the emulator: the
// emulator is a program of this machine and must not load the libraries of the board.
Words command_of(const Page &page, const Words &emulator, const RunOptions &options, const std::string &path)
{
    Words words = emulator;
    for (uint32_t i = 0; i < page.environment_count && !emulator.empty(); ++i)
        words.insert(words.end(), {"-E", page.environment[i]});
    words.push_back(path);
    words.insert(words.end(), options.program.begin() + 1, options.program.end());
    return words;
}

// The emulator for programs of another processor, with its options. Empty without an emulator.
Words emulator_of(const Page &page)
{
    Words words;
    for (const char *word = page.emulator; *word; word += words.back().size() + 1)
        words.emplace_back(word);
    return words;
}

int run_program(Client &board, const RunOptions &options, bool ends_with_board)
{
    const std::string path = find_program(options.program[0]);
    const Page &page = board.page();
    if (const Escape escape = escape_of(path.c_str(), page); escape != Escape::kNone) {
        std::cerr << "vboard: not run: " << path << " " << reason(escape) << "\n";
        return 126;
    }
    Words emulator;
    if (const uint16_t machine = machine_of(path.c_str()); machine != EM_NONE && machine != page.native_machine)
        emulator = emulator_of(page);
    Words environment;
    if (emulator.empty())
        environment.assign(page.environment, page.environment + page.environment_count);
    if (emulator.empty() && page.runtime[0] && needs_library(path.c_str(), page.runtime))
        environment[0] = page.runtime_preload;
    return run_command(command_of(page, emulator, options, path), environment, ends_with_board);
}

// Runs the same command again, inside a fence of namespaces.
int run_fenced(const fs::path &directory, const RunOptions &options)
{
    if (access(find_program("bwrap").c_str(), X_OK) != 0)
        throw ClientError("--fence needs bubblewrap: apt-get install bubblewrap");
    const std::string self = fs::read_symlink("/proc/self/exe");
    const std::string here = fs::current_path();
    Words words = {"bwrap", "--unshare-user", "--unshare-net", "--unshare-ipc", "--unshare-pid", "--die-with-parent"};
    words.insert(words.end(), {"--ro-bind", "/", "/", "--dev", "/dev", "--proc", "/proc", "--bind", "/tmp", "/tmp"});
    for (const std::string &place : options.writable)
        words.insert(words.end(), {"--bind", fs::absolute(place), fs::absolute(place)});
    words.insert(words.end(), {"--bind", here, here, "--bind", directory, directory, "--chdir", here});
    words.insert(words.end(), {self, "run", "--board", directory});
    if (options.speed != 0)
        words.insert(words.end(), {"--speed", std::to_string(options.speed)});
    for (const std::string &place : options.writable)
        words.insert(words.end(), {"--writable", fs::absolute(place)});
    for (const std::string &library : options.preload)
        words.insert(words.end(), {"--preload", library});
    if (!options.runtime.empty())
        words.insert(words.end(), {"--runtime", options.runtime});
    if (!options.emulator.empty())
        words.insert(words.end(), {"--emulator", options.emulator});
    if (options.real_net)
        words.emplace_back("--real-net");
    if (!options.trace)
        words.emplace_back("--no-trace");
    words.emplace_back("--");
    words.insert(words.end(), options.program.begin(), options.program.end());
    return run_command(words, {}, true);
}

} // namespace

fs::path descriptions()
{
    return own_prefix() / "share/vboard/boards";
}

int run(const RunOptions &options)
{
    if (std::getenv("VBOARD_PAGE"))
        throw ClientError("this is a program of a board already; start " + options.program[0] +
                          " without \"vboard run\"");
    // From here on a signal waits until a program can receive it, so that the board directory is removed.
    block_signals();
    const BoardDirectory directory(options);
    int status;
    if (options.fence) {
        status = run_fenced(directory.path(), options);
    } else {
        if (options.real_net)
            enter_own_network();
        const auto board = join(directory.path(), options);
        if (options.real_net && board->page().network != own_network())
            throw ClientError("the board runs already, outside of the network of this --real-net");
        status = run_program(*board, options, directory.is_temporary());
    }
    if (options.keep)
        std::cerr << "vboard: the board is in " << directory.path().string() << "\n";
    return status;
}

} // namespace vboard
