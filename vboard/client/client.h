// Controls a running board from another program: `vboard ctl`, and tests.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/unique_fd.h"
#include "page/page.h"

namespace vboard {

using ddal::core::UniqueFd;

// The board could not understand or execute a command.
struct ClientError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Client {
public:
    // Connects to the board of `directory`, or to the board that this program runs on. Throws ClientError.
    explicit Client(const std::filesystem::path &directory = {});
    ~Client();
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    // The process that serves the board; 0 when this process cannot see it.
    pid_t daemon() const;
    // Executes one command and returns its output. The second form separates words by blanks.
    std::string run(const std::vector<std::string> &words);
    std::string run(const std::string &line);

    // Keeps the board alive while this object lives.
    void hold();

    Page &page() { return *page_; }
    const std::filesystem::path &directory() const { return directory_; }

private:
    std::string exchange(uint32_t op, const std::string &payload);

    std::filesystem::path directory_;
    UniqueFd socket_;
    Page *page_ = nullptr;
    uint32_t next_id_ = 1;
};

} // namespace vboard
