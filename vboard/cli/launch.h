// Creates, starts and joins boards.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "client/client.h"

namespace vboard {

constexpr const char *kDefaultType = "mbo";

enum class FenceWish {
    kIfPossible, // the fence where the kernel allows it, else the preload library alone
    kRequired,
    kNone,
};

struct RunOptions {
    std::string board;                // directory; empty: a new one, removed afterwards
    std::string type;                 // description of a new board; empty: kDefaultType, and any existing board
    std::vector<std::string> preload; // libraries in front of those of the board
    std::string runtime;              // library in front of these, for programs that are linked with it
    std::vector<std::string> writable;
    std::vector<std::string> program;
    std::string emulator; // user-mode emulator and its options, for programs of another processor
    uint32_t speed = 0;   // 0: the speed of a running board, 1 for a new one
    bool keep = false;
    FenceWish fence = FenceWish::kIfPossible;
    bool real_net = false;
    bool trace = true;
};

// The folder of board descriptions, relative to the path of this program.
std::filesystem::path descriptions();

// The types of board and their names.
std::map<std::string, std::string> board_types();

// Tells why no fence can be had for these options; empty where one can.
std::string obstacle_to_fence(const RunOptions &options);

// Runs a program on a board and returns its exit status as a shell would.
int run(const RunOptions &options);

} // namespace vboard
