#include "support/program.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <pty.h>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "page/escapes.h"

namespace testing_board {

namespace {

using Stream = std::unique_ptr<FILE, decltype(&fclose)>;

// Output goes to files, so that a program cannot block on a full pipe.
Stream temporary_stream()
{
    FILE *stream = tmpfile();
    if (!stream)
        throw std::runtime_error("no temporary file");
    return {stream, fclose};
}

std::string content_of(FILE *stream)
{
    std::string content;
    std::array<char, 4096> buffer;
    rewind(stream);
    while (const size_t n = fread(buffer.data(), 1, buffer.size(), stream))
        content.append(buffer.data(), n);
    return content;
}

// Returns the emulator and its options if this test runs under one and the program needs it too.
std::vector<std::string> emulation_of(const std::string &program)
{
    const char *emulator = getenv("VBOARD_EMULATOR");
    const bool needed = emulator && vboard::machine_of(program.c_str()) == vboard::machine_of("/proc/self/exe");
    return needed ? words_of(emulator) : std::vector<std::string>{};
}

pid_t start(const std::vector<std::string> &words, FILE *out, FILE *err)
{
    std::vector<std::string> all = emulation_of(words[0]);
    all.insert(all.end(), words.begin(), words.end());
    std::vector<char *> argv;
    for (std::string &word : all)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fileno(out), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fileno(err), STDERR_FILENO);
    pid_t pid = -1;
    const int error = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::runtime_error("cannot start " + words[0]);
    return pid;
}

int wait_for(pid_t pid)
{
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace

Finished run_program(const std::vector<std::string> &words)
{
    const Stream out = temporary_stream();
    const Stream err = temporary_stream();
    const int status = wait_for(start(words, out.get(), err.get()));
    return {status, content_of(out.get()), content_of(err.get())};
}

Finished run_on_terminal(const std::vector<std::string> &words)
{
    int screen = -1;
    int line = -1;
    if (openpty(&screen, &line, nullptr, nullptr, nullptr) != 0)
        throw std::runtime_error("no terminal");
    Stream terminal(fdopen(line, "w"), fclose);
    const pid_t pid = start(words, terminal.get(), terminal.get());
    terminal.reset();
    std::string shown;
    char part[512];
    for (ssize_t n = 0; (n = read(screen, part, sizeof part)) > 0;) // ends with EIO
        shown.append(part, static_cast<size_t>(n));
    close(screen);
    return {wait_for(pid), shown, ""};
}

Finished run_and_signal(const std::vector<std::string> &words, std::chrono::milliseconds after, int signal)
{
    const Stream out = temporary_stream();
    const Stream err = temporary_stream();
    const pid_t pid = start(words, out.get(), err.get());
    std::this_thread::sleep_for(after);
    kill(pid, signal);
    const int status = wait_for(pid);
    return {status, content_of(out.get()), content_of(err.get())};
}

int run_and_answer(const std::string &line, const std::function<void(const std::string &line)> &answer)
{
    FILE *out = popen(line.c_str(), "r");
    if (!out)
        return -1;
    char text[512];
    while (fgets(text, sizeof text, out))
        answer(text);
    const int status = pclose(out);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::vector<std::string> words_of(const std::string &line)
{
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string word; in >> word;)
        words.push_back(word);
    return words;
}

} // namespace testing_board
