// Leftovers of a call: descriptors, children, files.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace testing_board {

class Resources {
public:
    // Also watches the file names in these folders of the board.
    explicit Resources(std::vector<std::string> folders = {});

    // Returns the resources added or removed since the beginning; empty when nothing changed.
    std::string difference() const;

private:
    static std::set<int> open_descriptors();
    std::set<std::string> names() const;

    std::vector<std::string> folders_;
    std::set<int> descriptors_;
    std::set<std::string> names_;
};

// Returns the descriptors of this process, without those of the board.
std::set<int> open_descriptors();

} // namespace testing_board
