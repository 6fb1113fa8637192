// What a call may leave behind: descriptors, children, files.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace testing_board {

class Resources {
public:
    // Also watches the names in these folders of the board.
    explicit Resources(std::vector<std::string> folders = {});

    // What is there now and was not at the beginning, or the other way round; empty when nothing changed.
    std::string difference() const;

private:
    static std::set<int> open_descriptors();
    std::set<std::string> names() const;

    std::vector<std::string> folders_;
    std::set<int> descriptors_;
    std::set<std::string> names_;
};

// Descriptors of this process, without the board's own.
std::set<int> open_descriptors();

} // namespace testing_board
