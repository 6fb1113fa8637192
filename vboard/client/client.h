// Control of a running board from another program: `vboard ctl`, and tests.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "daemon/descriptor.h"
#include "page/page.h"

namespace vboard {

// The board did not understand or could not do what it was told.
struct ClientError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Client {
public:
    // The board of `directory`; without one, the board this program runs on. Throws ClientError.
    explicit Client(const std::filesystem::path &directory = {});
    ~Client();
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    // Does one command and returns what it prints. Words are separated by blanks in the second form.
    std::string run(const std::vector<std::string> &words);
    std::string run(const std::string &line);

    // Keeps the board alive as long as this object lives.
    void hold();

    Page &page() { return *page_; }
    const std::filesystem::path &directory() const { return directory_; }

private:
    std::string exchange(uint32_t op, const std::string &payload);

    std::filesystem::path directory_;
    Descriptor socket_;
    Page *page_ = nullptr;
    uint32_t next_id_ = 1;
};

} // namespace vboard
