#include "auth/service_accounts.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace testing_board {

namespace {

constexpr const char *kDaemon = "/usr/sbin/sshd";
constexpr const char *kJudge = "/usr/sbin/sshd.judge"; // a copy that tests never replace
constexpr const char *kHostKey = "/etc/ssh/ssh_host_ed25519_key";

void make_key(const std::string &path)
{
    std::filesystem::remove(path);
    std::filesystem::remove(path + ".pub");
    const Finished run = run_program({"/usr/bin/ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", path});
    if (run.status != 0)
        throw std::runtime_error("no key: " + run.err);
}

std::string in_temporary_file(const std::string &text)
{
    const std::string path = "/etc/ssh/config-under-test";
    put_file(path, text);
    return path;
}

} // namespace

std::string from_package(const std::string &path)
{
    const std::string content = file_content(OPENSSH_SERVER_DIR + path);
    if (content.empty())
        throw std::runtime_error(OPENSSH_SERVER_DIR + path + " is missing; next: ./dev setup test");
    return content;
}

void put_program(const std::string &path, const std::string &script)
{
    std::filesystem::remove(path);
    put_file(path, script);
    chmod(path.c_str(), 0755);
}

void install_daemon()
{
    put_program(kDaemon, from_package(kDaemon));
    put_program(kJudge, from_package(kDaemon));
    if (!exists(kHostKey))
        make_key(kHostKey);
}

void authorise_key()
{
    make_key("/user/toor4qrx/.ssh/id_ed25519");
    put_file(kPrivilegedKeys, file_content("/user/toor4qrx/.ssh/id_ed25519.pub"));
}

bool daemon_accepts(const std::string &config)
{
    return run_program({kJudge, "-tf", in_temporary_file(config)}).status == 0;
}

std::string daemon_value(const std::string &config, const std::string &option, const std::string &user)
{
    const Finished run = run_program(
        {kJudge, "-Tf", in_temporary_file(config), "-C", "user=" + user + ",host=elsewhere,addr=192.0.2.1"});
    std::istringstream lines(run.out);
    std::string value;
    for (std::string name, rest; lines >> name && std::getline(lines.ignore(1), rest);)
        if (name == option)
            value += (value.empty() ? "" : " ") + rest;
    return value;
}

std::string password_hash(const std::string &user)
{
    std::ifstream shadow("/etc/shadow");
    for (std::string line; std::getline(shadow, line);)
        if (line.rfind(user + ":", 0) == 0) {
            const size_t begin = user.size() + 1;
            return line.substr(begin, line.find(':', begin) - begin);
        }
    throw std::runtime_error("no account " + user);
}

std::string with(std::string text, const std::string &old_part, const std::string &new_part)
{
    const size_t at = text.find(old_part);
    if (at == std::string::npos)
        throw std::runtime_error("no \"" + old_part + "\" in the text");
    return text.replace(at, old_part.size(), new_part);
}

void give_own_attributes(const std::string &path)
{
    if (chmod(path.c_str(), 0640) != 0 || chown(path.c_str(), 12, 34) != 0)
        throw std::runtime_error("cannot give " + path + " away");
}

std::string attributes(const std::string &path)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
        return "no " + path;
    std::ostringstream text;
    text << std::oct << (status.st_mode & 07777) << std::dec << ' ' << status.st_uid << ':' << status.st_gid;
    return text.str();
}

bool exists(const std::string &path)
{
    return access(path.c_str(), F_OK) == 0;
}

bool is_unlocked(const std::string &path)
{
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool free = fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) == 0;
    close(fd);
    return free;
}

} // namespace testing_board
