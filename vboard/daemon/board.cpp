#include "daemon/board.h"

#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>

#include "core/cpu_counter.h"
#include "daemon/faults.h"
#include "daemon/text_file.h"
#include "page/protocol.h"

namespace vboard {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const std::string &what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

template <size_t N>
void put(char (&to)[N], const std::string &text)
{
    if (text.size() >= N)
        throw std::runtime_error("too long for the board's page: " + text);
    std::memcpy(to, text.c_str(), text.size() + 1);
}

int64_t host_now(clockid_t clock)
{
    timespec now;
    clock_gettime(clock, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

uint64_t page_inode(const fs::path &page)
{
    struct stat info;
    return stat(page.c_str(), &info) == 0 ? info.st_ino : 0;
}

} // namespace

Board::Board(const fs::path &directory, Loop &loop) : directory_(directory), loop_(loop)
{
    const BoardFile conf = read_board_file(directory / "board.conf");
    map_page();
    add_nodes(conf);
    for (const std::string &name : conf.models)
        add_model(name);
    for (const std::string &entry : conf.environment)
        add_environment(entry);
    add_ioctls();
    for (const auto &[name, model] : models_)
        model->start();
    for (const Words &words : conf.init)
        control(words);
}

Board::~Board()
{
    models_.clear();
    munmap(page_, sizeof(Page));
}

void Board::map_page()
{
    const UniqueFd fd{open(private_path("page").c_str(), O_RDWR | O_CLOEXEC)};
    if (!fd)
        fail("cannot open the board's page");
    void *at = mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
    if (at == MAP_FAILED)
        fail("cannot map the board's page");
    page_ = static_cast<Page *>(at);
}

void Board::add_nodes(const BoardFile &conf)
{
    if (conf.nodes.size() > kMaxNodes)
        throw std::runtime_error("the board description has too many nodes");
    page_->node_count = 0;
    for (const auto &line : conf.nodes) {
        const uint32_t index = page_->node_count;
        Node &node = page_->nodes[index];
        node = {};
        put(node.path, line.path);
        node.id = index + 1;
        node.kind = line.kind;
        node.is_mapped = line.is_mapped;
        const fs::path opened =
            node.kind == NodeKind::kModel ? node_place(directory_, kNodeHandles, line.path) : file(line.path);
        struct statx info;
        if (statx(AT_FDCWD, opened.c_str(), 0, STATX_INO, &info) != 0)
            fail("the board's file " + line.path);
        node.device = uint64_t{info.stx_dev_major} << 32 | info.stx_dev_minor;
        node.inode = info.stx_ino;
        if (!line.model.empty())
            node_models_[node.id] = &add_model(line.model);
        page_->node_count = index + 1;
    }
}

Model &Board::add_model(const std::string &name)
{
    auto &model = models_[name];
    if (!model)
        model = make_model(name, *this);
    if (!model)
        throw std::runtime_error("there is no model \"" + name + "\"");
    return *model;
}

void Board::add_ioctls()
{
    page_->ioctl_count = 0;
    for (const auto &[id, model] : node_models_)
        for (IoctlForm form : model->ioctls(*node(id))) {
            if (page_->ioctl_count >= kMaxIoctls)
                throw std::runtime_error("the models have too many requests");
            form.node = id;
            page_->ioctls[page_->ioctl_count++] = form;
        }
}

fs::path Board::file(const std::string &board_path) const
{
    const fs::path of_node = node_place(directory_, kNodeFiles, board_path);
    if (fs::is_regular_file(of_node))
        return of_node;
    for (const char *folded : {"/bin/", "/sbin/", "/lib/"})
        if (board_path.rfind(folded, 0) == 0)
            return directory_ / "root" / ("usr" + board_path);
    return directory_ / "root" / board_path.substr(1);
}

std::string Board::read_text(const std::string &board_path) const
{
    return vboard::read_text(file(board_path));
}

void Board::write_text(const std::string &board_path, const std::string &text)
{
    const fs::path path = file(board_path);
    fs::create_directories(path.parent_path());
    const UniqueFd fd{open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644)};
    if (!fd || pwrite(fd.get(), text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()) ||
        ftruncate(fd.get(), static_cast<off_t>(text.size())) != 0)
        fail("cannot write " + board_path);
}

int64_t Board::monotonic_ns() const
{
    const int64_t epoch = page_->epoch_ns[1];
    return epoch + (host_now(CLOCK_MONOTONIC) - epoch) * page_->speed;
}

int64_t Board::real_ns() const
{
    const int64_t epoch = page_->epoch_ns[0];
    return epoch + (host_now(CLOCK_REALTIME) - epoch) * page_->speed;
}

uint64_t Board::counter() const
{
    const auto ns = static_cast<uint64_t>(monotonic_ns());
    return ns / 1'000'000'000 * ddal::core::kCpuCounterHz + ns % 1'000'000'000 * 128 / 625;
}

HostTime Board::host_time(int64_t board_monotonic_ns) const
{
    const int64_t epoch = page_->epoch_ns[1];
    return HostTime{std::chrono::nanoseconds{epoch + (board_monotonic_ns - epoch) / page_->speed}};
}

uint64_t Board::after(std::chrono::nanoseconds span, Loop::Handler handler)
{
    return loop_.at(std::chrono::steady_clock::now() + span / page_->speed, std::move(handler));
}

const Node *Board::node(const std::string &path) const
{
    for (uint32_t i = 0; i < page_->node_count; ++i)
        if (path == page_->nodes[i].path)
            return &page_->nodes[i];
    return nullptr;
}

const Node *Board::node(uint32_t id) const
{
    return id >= 1 && id <= page_->node_count ? &page_->nodes[id - 1] : nullptr;
}

Model *Board::model_of(const Node &node) const
{
    const auto found = node_models_.find(node.id);
    return found == node_models_.end() ? nullptr : found->second;
}

Model *Board::model(const std::string &name) const
{
    const auto found = models_.find(name);
    return found == models_.end() ? nullptr : found->second.get();
}

int Board::open_channel(const Node &node, uint32_t flags, UniqueFd &program_end)
{
    Model *model = model_of(node);
    if (!model)
        return -ENXIO;
    // Attributes signal with out-of-band data, which requires a stream. Records need packets to keep their bounds.
    const bool has_priority_input = node.kind == NodeKind::kNotify || node.kind == NodeKind::kSignal;
    const int type = (has_priority_input ? SOCK_STREAM : SOCK_SEQPACKET) | SOCK_CLOEXEC;
    int ends[2];
    if (socketpair(AF_UNIX, type, 0, ends) != 0)
        return -errno;
    UniqueFd mine{ends[0]};
    program_end = UniqueFd{ends[1]};
    // The preload library takes a program's writes to the model. A raw write fails with EPIPE.
    shutdown(program_end.get(), SHUT_WR);
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    const std::string text = kPeerPrefix + std::to_string(page_inode(private_path("page"))) + "/" +
                             std::to_string(node.id) + "/" + std::to_string(next_serial_++);
    std::memcpy(name.sun_path + 1, text.data(), text.size());
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + text.size());
    if (bind(mine.get(), reinterpret_cast<sockaddr *>(&name), length) != 0)
        return -errno;
    return model->open(node, flags, std::move(mine));
}

void Board::map_port(uint16_t board_port, uint16_t host_port)
{
    if (page_->port_count >= kMaxPorts)
        throw std::runtime_error("too many ports");
    page_->ports[page_->port_count++] = {board_port, host_port};
}

void Board::add_environment(const std::string &entry)
{
    if (page_->environment_count >= kMaxEnvironment)
        throw std::runtime_error("too many variables");
    put(page_->environment[page_->environment_count], entry);
    ++page_->environment_count;
}

std::vector<ControlFamily> Board::control_families()
{
    using Row = ControlRow<Board>;
    return {
        {"models", "the models of this board",
         [] {
             return ControlTable{Row{"", "list them", [](const Board &board) {
                                         std::string list;
                                         for (const auto &[name, model] : board.models_)
                                             list += name + "\n";
                                         return list;
                                     }}};
         }},
        {"fault", "failures of single calls", fault_commands},
        {"trace", "the trace of what programs do",
         [] {
             return ControlTable{Row{"on|off", "resume or pause the trace", [](Board &board, const Given &given) {
                                         board.page_->trace.store(given.says("on"));
                                     }}};
         }},
    };
}

std::string Board::control(const Words &words)
{
    if (words.empty())
        throw ControlError("missing the name of a model; \"vboard ctl models\" lists them");
    const Words rest(words.begin() + 1, words.end());
    Model *found = model(words[0]);
    const auto families = found ? vboard::control_families() : control_families();
    if (const ControlFamily *family = find_family(families, words[0]))
        return run_control(*family, found ? static_cast<Controlled &>(*found) : *this, rest);
    Words names;
    for (const ControlFamily &family : families)
        names.emplace_back(family.name);
    for (const auto &[name, unused] : models_)
        names.push_back(name);
    throw ControlError("no model \"" + words[0] + "\"" + suggestion(words[0], names) +
                       "; \"vboard ctl models\" lists them");
}

} // namespace vboard
