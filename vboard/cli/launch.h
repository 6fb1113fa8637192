// Creates, starts and joins boards.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "client/client.h"

namespace vboard {

struct RunOptions {
    std::string board;                // directory; empty: a new one, taken away afterwards
    std::string type = "mbo";         // description of a new board
    std::vector<std::string> preload; // libraries in front of the board's own
    std::string runtime;              // library in front of these, for programs that are linked with it
    std::vector<std::string> writable;
    std::vector<std::string> program;
    std::string emulator; // user-mode emulator and its options, for programs of another processor
    uint32_t speed = 1;
    bool keep = false;
    bool fence = false;
    bool real_net = false;
    bool trace = true;
};

// The folder of board descriptions, relative to the path of this program.
std::filesystem::path descriptions();

// Runs a program on a board and returns its exit status as a shell would.
int run(const RunOptions &options);

} // namespace vboard
