#include "daemon/board_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "core/unique_fd.h"
#include "daemon/text_file.h"

namespace vboard {

namespace fs = std::filesystem;
using ddal::core::UniqueFd;

namespace {

using Words = std::vector<std::string>;

[[noreturn]] void complain(const fs::path &path, int line, const std::string &what)
{
    throw std::runtime_error(path.string() + ":" + std::to_string(line) + ": " + what);
}

char escaped(const std::string &text, size_t &i)
{
    switch (text[i]) {
    case 'n': return '\n';
    case 't': return '\t';
    case 'r': return '\r';
    case '0': return '\0';
    case 'x': {
        const std::string digits = text.substr(i + 1, 2);
        i += 2;
        return static_cast<char>(std::stoi(digits, nullptr, 16));
    }
    default: return text[i];
    }
}

Words split(const std::string &line)
{
    Words words;
    for (size_t i = 0; i < line.size();) {
        if (std::isspace(static_cast<unsigned char>(line[i]))) {
            ++i;
            continue;
        }
        if (line[i] == '#')
            break;
        std::string word;
        const bool quoted = line[i] == '"';
        for (i += quoted; i < line.size(); ++i) {
            if (quoted ? line[i] == '"' : std::isspace(static_cast<unsigned char>(line[i])) != 0)
                break;
            if (quoted && line[i] == '\\' && i + 1 < line.size())
                word += escaped(line, ++i);
            else
                word += line[i];
        }
        i += quoted;
        words.push_back(word);
    }
    return words;
}

NodeKind kind_of(const std::string &word)
{
    constexpr std::pair<const char *, NodeKind> kKinds[] = {
        {"plain", NodeKind::kPlain},     {"model", NodeKind::kModel},   {"attribute", NodeKind::kAttribute},
        {"channel", NodeKind::kChannel}, {"notify", NodeKind::kNotify}, {"signal", NodeKind::kSignal}};
    for (const auto &[name, kind] : kKinds)
        if (word == name)
            return kind;
    throw std::runtime_error("no such kind of node: " + word);
}

void take(BoardFile &conf, const Words &words, const fs::path &base);

void read_into(BoardFile &conf, const fs::path &path)
{
    std::ifstream in(path);
    if (!in)
        throw std::runtime_error("cannot read the board description " + path.string() + ": " + std::strerror(errno));
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        try {
            const Words words = split(line);
            if (words.empty())
                continue;
            if (words[0] != "include")
                conf.text += line + "\n";
            take(conf, words, path.parent_path());
        } catch (const std::exception &error) {
            complain(path, number, error.what());
        }
    }
}

void need(const Words &words, size_t count)
{
    if (words.size() < count)
        throw std::runtime_error("\"" + words[0] + "\" needs " + std::to_string(count - 1) + " words");
}

void take(BoardFile &conf, const Words &words, const fs::path &base)
{
    const std::string &verb = words[0];
    if (verb == "include") {
        need(words, 2);
        read_into(conf, base / words[1]);
    } else if (verb == "board") {
        need(words, 3);
        conf.number = static_cast<unsigned>(std::stoul(words[1]));
        conf.name = words[2];
    } else if (verb == "node") {
        need(words, 3);
        const NodeKind kind = kind_of(words[2]);
        if (kind != NodeKind::kPlain)
            need(words, 4);
        const uint64_t size = words.size() > 4 ? std::stoull(words[4], nullptr, 0) : 0;
        const bool is_mapped = words.size() > 5 && words[5] == "mapped";
        conf.nodes.push_back({words[1], kind, words.size() > 3 && words[3] != "-" ? words[3] : "", size, is_mapped});
    } else if (verb == "init") {
        need(words, 2);
        conf.init.emplace_back(words.begin() + 1, words.end());
    } else if (verb == "model") {
        need(words, 2);
        conf.models.push_back(words[1]);
    } else if (verb == "library") {
        need(words, 2);
        conf.libraries.push_back(words[1]);
    } else if (verb == "environment") {
        need(words, 2);
        conf.environment.push_back(words[1]);
    } else if (verb == "dir" || verb == "file" || verb == "dt" || verb == "link" || verb == "program" ||
               verb == "data") {
        need(words, verb == "dir" ? 2 : verb == "dt" ? 4 : 3);
        conf.files.push_back(words);
    } else {
        throw std::runtime_error("no such statement: " + verb);
    }
}

std::string property_of(const Words &words)
{
    std::string value;
    const std::string &type = words[2];
    if (type == "string")
        return words[3] + '\0';
    if (type == "u32") {
        for (size_t i = 3; i < words.size(); ++i) {
            const auto cell = static_cast<uint32_t>(std::stoul(words[i], nullptr, 0));
            for (int shift = 24; shift >= 0; shift -= 8)
                value += static_cast<char>(cell >> shift);
        }
        return value;
    }
    if (type == "bytes") {
        std::istringstream in(words[3]);
        for (std::string byte; std::getline(in, byte, ':');)
            value += static_cast<char>(std::stoi(byte, nullptr, 16));
        return value;
    }
    throw std::runtime_error("no such kind of property: " + type);
}

std::string slurp(const fs::path &path)
{
    if (access(path.c_str(), R_OK) != 0)
        throw std::runtime_error("cannot read " + path.string());
    return read_text(path);
}

// A later statement of a description replaces the file of an earlier one.
UniqueFd new_file(const fs::path &path)
{
    const auto open_new = [&] { return UniqueFd{open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)}; };
    UniqueFd fd = open_new();
    if (fd)
        return fd;
    if (errno == ENOENT)
        fs::create_directories(path.parent_path());
    else
        fs::remove(path);
    return open_new();
}

void write_file(const fs::path &path, const std::string &text, mode_t mode)
{
    const UniqueFd fd = new_file(path);
    if (!fd || write(fd.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        fchmod(fd.get(), mode) != 0)
        throw std::runtime_error("cannot write " + path.string() + ": " + std::strerror(errno));
}

// Writes the blocks of a chunk that are not all zero. A whole number of blocks, except at the end of the file.
bool write_blocks(const UniqueFd &fd, const char *chunk, size_t size, off_t at)
{
    constexpr size_t kBlock = 4096;
    static const char zeros[kBlock] = {};
    for (size_t i = 0; i < size; i += kBlock) {
        const size_t n = std::min(kBlock, size - i);
        if (std::memcmp(chunk + i, zeros, n) != 0 &&
            pwrite(fd.get(), chunk + i, n, at + static_cast<off_t>(i)) != static_cast<ssize_t>(n))
            return false;
    }
    return true;
}

// Copies a file of a description and leaves holes for its zeros: an empty disk takes no space.
void copy_with_holes(const fs::path &from, const fs::path &to)
{
    std::vector<char> chunk(64 * 1024);
    const UniqueFd in{open(from.c_str(), O_RDONLY | O_CLOEXEC)};
    const UniqueFd out = new_file(to);
    off_t at = 0;
    ssize_t n = in && out ? 1 : -1;
    while (n > 0 && (n = pread(in.get(), chunk.data(), chunk.size(), at)) > 0) {
        if (!write_blocks(out, chunk.data(), static_cast<size_t>(n), at))
            n = -1;
        at += n;
    }
    if (n < 0 || ftruncate(out.get(), at) != 0 || fchmod(out.get(), 0644) != 0)
        throw std::runtime_error("cannot copy " + from.string() + " to " + to.string() + ": " + std::strerror(errno));
}

// Maps "/bin/x" to "/usr/bin/x", as on a board with merged folders.
fs::path place(const fs::path &root, const std::string &board_path)
{
    for (const char *folded : {"/bin/", "/sbin/", "/lib/"})
        if (board_path.rfind(folded, 0) == 0)
            return root / ("usr" + board_path);
    return root / board_path.substr(1);
}

void make_file(const fs::path &root, const fs::path &base, const Words &words)
{
    const std::string &verb = words[0];
    const auto mode = [&](size_t index, mode_t otherwise) {
        return words.size() > index ? static_cast<mode_t>(std::stoul(words[index], nullptr, 8)) : otherwise;
    };
    if (verb == "dt") {
        write_file(root / "proc/device-tree" / words[1], property_of(words), 0644);
        return;
    }
    const fs::path path = place(root, words[1]);
    if (verb == "dir") {
        fs::create_directories(path);
        chmod(path.c_str(), mode(2, 0755));
    } else if (verb == "file") {
        write_file(path, words[2], mode(3, 0644));
    } else if (verb == "data") {
        copy_with_holes(base / words[2], path);
    } else if (verb == "program") {
        write_file(path, slurp(base / "programs" / words[2]), 0755);
    } else {
        fs::create_directories(path.parent_path());
        fs::remove(path);
        fs::create_symlink(words[2], path);
    }
}

// Makes the file of a node, unless a "file" statement has given its text, and the name that programs see.
void make_node(const fs::path &directory, const BoardFile::NodeLine &node)
{
    const fs::path name = place(directory / "root", node.path);
    const bool is_plain = node.kind == NodeKind::kPlain;
    const fs::path file = is_plain ? name : node_place(directory, kNodeFiles, node.path);
    if (fs::is_socket(name))
        return; // named twice
    if (!fs::exists(name)) {
        write_file(file, "", 0666);
        if (node.size)
            fs::resize_file(file, node.size);
    } else if (!is_plain) {
        fs::create_directories(file.parent_path());
        fs::rename(name, file);
    }
    if (node.kind == NodeKind::kModel)
        fs::create_directories(node_place(directory, kNodeHandles, node.path));
    fs::create_directories(name.parent_path());
    if (!is_plain && mknod(name.c_str(), S_IFSOCK | 0666, 0) != 0)
        throw std::system_error(errno, std::generic_category(), name);
}

} // namespace

BoardFile read_board_file(const fs::path &path)
{
    BoardFile conf;
    read_into(conf, path);
    return conf;
}

fs::path node_place(const fs::path &directory, const char *folder, const std::string &node_path)
{
    std::string name = node_path.substr(1);
    std::replace(name.begin(), name.end(), '/', kNodeSlash);
    return directory / ".vboard" / folder / name;
}

void create_board(const fs::path &directory, const fs::path &description)
{
    if (fs::exists(directory) && !fs::is_empty(directory))
        throw std::runtime_error(directory.string() + " is not empty; name a new directory for the board");
    const BoardFile conf = read_board_file(description);
    const fs::path root = directory / "root";
    fs::create_directories(root);
    fs::create_directories(directory / ".vboard" / "names");
    for (const Words &words : conf.files)
        make_file(root, description.parent_path(), words);
    for (const auto &node : conf.nodes)
        make_node(directory, node);
    write_file(directory / "board.conf", conf.text, 0644);
}

} // namespace vboard
