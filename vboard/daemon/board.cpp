#include "daemon/board.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sys/mman.h>
#include <sys/random.h>
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
    speed_ = std::max(page_->speed, 1u);
    real_epoch_ = page_->epoch_ns[0];
    monotonic_epoch_ = page_->epoch_ns[1];
    port_count_ = page_->port_count = 0;
    environment_count_ = std::min(page_->environment_count, kMaxEnvironment);
}

void Board::add_nodes(const BoardFile &conf)
{
    if (conf.nodes.size() > kMaxNodes)
        throw std::runtime_error("the board description has too many nodes");
    for (const auto &line : conf.nodes) {
        Node node{};
        put(node.path, line.path);
        node.id = static_cast<uint32_t>(nodes_.size()) + 1;
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
        nodes_.push_back(node);
    }
    std::copy(nodes_.begin(), nodes_.end(), page_->nodes);
    page_->node_count = static_cast<uint32_t>(nodes_.size());
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
    for (const auto &[id, model] : node_models_)
        for (IoctlForm form : model->ioctls(*node(id))) {
            if (ioctls_.size() >= kMaxIoctls)
                throw std::runtime_error("the models have too many requests");
            form.node = id;
            ioctls_.push_back(form);
        }
    std::copy(ioctls_.begin(), ioctls_.end(), page_->ioctls);
    page_->ioctl_count = static_cast<uint32_t>(ioctls_.size());
}

const IoctlForm *Board::ioctl_form(const Node &node, uint32_t request) const
{
    const auto found = std::find_if(ioctls_.begin(), ioctls_.end(), [&](const IoctlForm &form) {
        return form.node == node.id && form.request == request;
    });
    return found == ioctls_.end() ? nullptr : &*found;
}

fs::path Board::file(const std::string &board_path) const
{
    fs::path of_node = node_place(directory_, kNodeFiles, board_path);
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
    return monotonic_epoch_ + (host_now(CLOCK_MONOTONIC) - monotonic_epoch_) * speed_;
}

int64_t Board::real_ns() const
{
    return real_epoch_ + (host_now(CLOCK_REALTIME) - real_epoch_) * speed_;
}

uint64_t Board::counter() const
{
    const auto ns = static_cast<uint64_t>(monotonic_ns());
    return ns / 1'000'000'000 * ddal::core::kCpuCounterHz + ns % 1'000'000'000 * 128 / 625;
}

HostTime Board::host_time(int64_t board_monotonic_ns) const
{
    return HostTime{std::chrono::nanoseconds{monotonic_epoch_ + (board_monotonic_ns - monotonic_epoch_) / speed_}};
}

uint64_t Board::after(std::chrono::nanoseconds span, Loop::Handler handler)
{
    return loop_.at(std::chrono::steady_clock::now() + span / speed_, std::move(handler));
}

const Node *Board::node(const std::string &path) const
{
    const auto found = std::find_if(nodes_.begin(), nodes_.end(), [&](const Node &node) { return path == node.path; });
    return found == nodes_.end() ? nullptr : &*found;
}

const Node *Board::node(uint32_t id) const
{
    return id >= 1 && id <= nodes_.size() ? &nodes_[id - 1] : nullptr;
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
    uint64_t unguessable = 0; // another user of the machine must not take the name first
    if (getrandom(&unguessable, sizeof unguessable, 0) != sizeof unguessable)
        return -EIO;
    const std::string text = kPeerPrefix + std::to_string(page_inode(private_path("page"))) + "/" +
                             std::to_string(node.id) + "/" + std::to_string(next_serial_++) + "/" +
                             std::to_string(unguessable);
    std::memcpy(name.sun_path + 1, text.data(), text.size());
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + text.size());
    if (bind(mine.get(), reinterpret_cast<sockaddr *>(&name), length) != 0)
        return -errno;
    return model->open(node, flags, std::move(mine));
}

void Board::map_port(uint16_t board_port, uint16_t host_port)
{
    if (port_count_ >= kMaxPorts)
        throw std::runtime_error("too many ports");
    page_->ports[port_count_] = {board_port, host_port};
    page_->port_count = ++port_count_;
}

void Board::add_environment(const std::string &entry)
{
    if (environment_count_ >= kMaxEnvironment)
        throw std::runtime_error("too many variables");
    put(page_->environment[environment_count_], entry);
    page_->environment_count = ++environment_count_;
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
