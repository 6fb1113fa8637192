#include "cli/launch.h"

#include <csignal>
#include <fcntl.h>
#include <iostream>
#include <iterator>
#include <sstream>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>

#include "cli/board_directory.h"
#include "cli/board_page.h"
#include "cli/fence.h"
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

// "net:[4026531840]"
std::string own_network()
{
    return fs::read_symlink("/proc/self/ns/net");
}

// Throws when an option has no effect on a board that runs already.
void check_options_on(const Page &page, bool fenced, const RunOptions &options)
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
    if (options.real_net && (!page.network[0] || !fenced))
        refuse("--real-net");
    if (options.fence == FenceWish::kRequired && !fenced)
        refuse("--fence");
    if (options.fence == FenceWish::kNone && fenced)
        refuse("--no-fence");
}

// Runs the daemon. It ends with the last program, and nothing of it may outlive the board.
[[noreturn]] void be_daemon(const fs::path &directory, bool fenced, bool real_net, int ready)
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
        board.page().fenced = fenced;
        if (real_net)
            own_network().copy(board.page().network, sizeof board.page().network - 1);
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

// Starts the daemon through `start` and waits until it serves the board.
pid_t start_daemon(const fs::path &directory, bool fenced, const RunOptions &options, const Starter &start)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        fail("pipe");
    const UniqueFd from{ends[0]};
    UniqueFd to{ends[1]};
    const pid_t started = start([&] { be_daemon(directory, fenced, options.real_net, to.get()); });
    to = UniqueFd{};
    char text[512];
    const ssize_t n = read(from.get(), text, sizeof text);
    if (n != 1 || text[0] != '\0')
        throw ClientError("the board in " + directory.string() +
                          " cannot start: " + std::string(text, n > 0 ? static_cast<size_t>(n) : 0));
    return started;
}

pid_t start_child(const Body &body)
{
    const pid_t child = fork();
    if (child < 0)
        fail("fork");
    if (child == 0) {
        body();
        _exit(0);
    }
    return child;
}

// Starts a grandchild, so that the process that starts a board need not reap its daemon.
pid_t start_apart(const Body &body)
{
    const pid_t child = start_child([&] { start_child(body); });
    waitpid(child, nullptr, 0);
    return 0;
}

// `directory`: empty without a board.
FencePlan plan_of(const fs::path &directory, const RunOptions &options)
{
    FencePlan plan;
    plan.real_net = options.real_net;
    plan.writable = {"/tmp"};
    Words needed{own_prefix(), fs::current_path(), options.runtime};
    needed.insert(needed.end(), options.preload.begin(), options.preload.end());
    std::istringstream words(options.emulator);
    needed.insert(needed.end(), std::istream_iterator<std::string>(words), {});
    if (!options.program.empty())
        needed.push_back(find_program(options.program[0]));
    for (const std::string &path : needed)
        if (std::error_code gone; fs::exists(path, gone))
            plan.needed.push_back(fs::weakly_canonical(path, gone));
    if (directory.empty())
        return plan;
    plan.root = directory / "root";
    const Words places = writable_places(directory, options);
    plan.writable.insert(plan.writable.end(), places.begin(), places.end());
    return plan;
}

// Starts the daemon inside a fence, if there is to be one. Returns the fence's first process, or 0.
pid_t start_board(const fs::path &directory, const RunOptions &options)
{
    if (options.fence != FenceWish::kNone) {
        const FencePlan plan = plan_of(directory, options);
        try {
            return start_daemon(directory, true, options, [&](const Body &body) { return start_fence(plan, body); });
        } catch (const FenceError &error) {
            if (options.fence == FenceWish::kRequired)
                throw ClientError(std::string("no fence can be had here (") + error.what() + "); nothing was run");
            std::cerr << "vboard: no fence here (" << error.what()
                      << "): the preload library alone keeps programs away from this machine\n";
        }
    }
    if (options.real_net)
        enter_own_network();
    return start_daemon(directory, false, options, start_apart);
}

struct Joined {
    std::unique_ptr<Client> board;
    pid_t fence = 0; // first process of a fence that was made for the board now
};

// Joins the board of a directory and starts it first if needed. A lock admits one caller at a time.
Joined join(const fs::path &directory, const RunOptions &options)
{
    const UniqueFd lock{open((directory / ".vboard/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)};
    if (!lock || flock(lock.get(), LOCK_EX) != 0)
        fail((directory / ".vboard/lock").string());
    Joined joined;
    try {
        joined.board = std::make_unique<Client>(directory);
        joined.board->hold();
    } catch (const ClientError &) { // the board does not run, or its last program has just ended
        write_page(directory, options);
        joined.fence = start_board(directory, options);
        joined.board = std::make_unique<Client>(directory);
        joined.board->hold();
        return joined;
    }
    check_options_on(joined.board->page(), is_fenced(joined.board->daemon()), options);
    return joined;
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

// Throws for a program of this machine that lies below a folder of the board.
void check_visible(const fs::path &program, pid_t inside)
{
    std::error_code unknown;
    const fs::path whole = fs::absolute(program);
    const fs::path there = "/proc/" + std::to_string(inside) + "/root" + whole.string();
    if (fs::exists(whole, unknown) && !fs::exists(there, unknown) && !unknown)
        throw ClientError("the board's files hide " + whole.string() +
                          "; let this program start the board, or move it to a folder that the board does not have");
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
    const pid_t daemon = board.daemon();
    const bool fenced = is_fenced(daemon);
    if (fenced)
        check_visible(path, daemon);
    const Starter start = [&](const Body &body) {
        return fenced ? start_inside(daemon, fs::current_path(), page.network[0] != '\0', body) : start_child(body);
    };
    const Outcome outcome = run_command(command_of(page, emulator, options, path), environment, start);
    if (!fenced && (ends_with_board || outcome.signalled))
        end_children();
    return outcome.status;
}

// Ends everything inside a fence.
void end_fence(pid_t first)
{
    if (waitpid(first, nullptr, WNOHANG) != 0)
        return;
    kill(first, SIGKILL);
    waitpid(first, nullptr, 0);
}

} // namespace

fs::path descriptions()
{
    return own_prefix() / "share/vboard/boards";
}

std::map<std::string, std::string> board_types()
{
    std::map<std::string, std::string> types;
    for (const auto &entry : fs::directory_iterator(descriptions())) {
        if (entry.path().extension() != ".conf")
            continue;
        const BoardFile description = read_board_file(entry.path());
        if (description.number != 0) // 0: a part that descriptions include
            types[entry.path().stem().string()] = description.name;
    }
    return types;
}

std::string obstacle_to_fence(const RunOptions &options)
{
    if (options.fence == FenceWish::kNone)
        return "--no-fence";
    try {
        waitpid(start_fence(plan_of({}, options), [] {}), nullptr, 0);
    } catch (const FenceError &error) {
        return error.what();
    }
    return "";
}

int run(const RunOptions &options)
{
    if (std::getenv("VBOARD_PAGE"))
        throw ClientError("this is a program of a board already; start " + options.program[0] +
                          " without \"vboard run\"");
    // From here on a signal waits until a program can receive it, so that the board directory is removed.
    block_signals();
    const BoardDirectory directory(options);
    Joined joined = join(directory.path(), options);
    const int status = run_program(*joined.board, options, directory.is_temporary());
    joined.board.reset();
    if (directory.is_temporary() && joined.fence != 0)
        end_fence(joined.fence);
    if (options.keep)
        std::cerr << "vboard: the board is in " << directory.path().string() << "\n";
    return status;
}

} // namespace vboard
