// The directory of the board that a program runs on.
#pragma once

#include <filesystem>

#include "cli/launch.h"
#include "core/unique_fd.h"

namespace vboard {

// Makes the board if it is not there. A temporary one goes with this object; one whose `vboard run` was killed goes
// when the next one is made.
class BoardDirectory {
public:
    explicit BoardDirectory(const RunOptions &options);
    ~BoardDirectory();
    BoardDirectory(const BoardDirectory &) = delete;
    BoardDirectory &operator=(const BoardDirectory &) = delete;

    const std::filesystem::path &path() const { return path_; }
    bool is_temporary() const { return static_cast<bool>(owner_); }

private:
    BoardDirectory() = default;
    void open_existing(const RunOptions &options);
    void make(const RunOptions &options);
    void own();

    std::filesystem::path path_;
    bool remove_ = false;
    ddal::core::UniqueFd owner_; // locked as long as a temporary board is in use
};

} // namespace vboard
