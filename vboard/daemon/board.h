// One board: its files, its page, its nodes and its models.
#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "daemon/board_file.h"
#include "daemon/loop.h"
#include "daemon/model.h"
#include "page/page.h"

namespace vboard {

class Board : public Controlled {
public:
    // Opens a directory that create_board has made.
    Board(const std::filesystem::path &directory, Loop &loop);
    ~Board() override;

    Page &page() { return *page_; }
    Loop &loop() { return loop_; }
    const std::filesystem::path &directory() const { return directory_; }
    std::filesystem::path private_path(const std::string &name) const { return directory_ / ".vboard" / name; }
    // Returns the host path of a file of the board.
    std::filesystem::path file(const std::string &board_path) const;

    // Read and write plain files of the board as a whole. Writing keeps the inode, so that open descriptors and maps
    // stay valid.
    std::string read_text(const std::string &board_path) const;
    void write_text(const std::string &board_path, const std::string &text);

    // Time of the board: nanoseconds of its monotonic and real clocks, counts of its processor counter (204.8 MHz).
    int64_t monotonic_ns() const;
    int64_t real_ns() const;
    uint64_t counter() const;
    HostTime host_time(int64_t board_monotonic_ns) const;
    // Calls `handler` once after a span of board time.
    uint64_t after(std::chrono::nanoseconds span, Loop::Handler handler);

    const Node *node(const std::string &path) const;
    const Node *node(uint32_t id) const;
    Model *model_of(const Node &node) const;
    std::span<const Node> nodes() const { return nodes_; }
    const IoctlForm *ioctl_form(const Node &node, uint32_t request) const;
    Model *model(const std::string &name) const;
    template <typename M>
    M *find() const
    {
        for (const auto &[name, model] : models_)
            if (auto *found = dynamic_cast<M *>(model.get()))
                return found;
        return nullptr;
    }
    template <typename Each>
    void each_node_of(const Model &model, Each each) const
    {
        for (const Node &node : nodes_)
            if (model_of(node) == &model)
                each(node);
    }

    // Makes a pair of connected sockets for a channel. Returns the program's end; the daemon's goes to the model.
    int open_channel(const Node &node, uint32_t flags, UniqueFd &program_end);
    // Reports whether a channel's socket has this number.
    bool has_given(uint32_t serial) const { return serial > 0 && serial < next_serial_; }

    // Maps a TCP port of the board to a port of the host.
    void map_port(uint16_t board_port, uint16_t host_port);
    // Puts NAME=value into every environment of the board's programs.
    void add_environment(const std::string &entry);

    // Executes the words of `vboard ctl`. The first word names a model, or is a command of the board.
    std::string control(const Words &words);
    // The commands of the board.
    static std::vector<ControlFamily> control_families();

private:
    void map_page();
    void add_nodes(const BoardFile &conf);
    Model &add_model(const std::string &name);
    void add_ioctls();

    std::filesystem::path directory_;
    Loop &loop_;
    Page *page_ = nullptr;
    // What the daemon has put into the page, and relies on. Programs can write to the page.
    std::vector<Node> nodes_;
    std::vector<IoctlForm> ioctls_;
    uint32_t port_count_ = 0;
    uint32_t environment_count_ = 0;
    uint32_t speed_ = 1;
    int64_t real_epoch_ = 0;
    int64_t monotonic_epoch_ = 0;
    std::map<std::string, std::unique_ptr<Model>> models_;
    std::map<uint32_t, Model *> node_models_;
    uint32_t next_serial_ = 1;
};

// Makes the model with a name in a board description. Returns null for an unknown name.
std::unique_ptr<Model> make_model(const std::string &name, Board &board);

} // namespace vboard
