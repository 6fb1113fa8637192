// Board descriptions: one statement per line, "#" starts a comment, words may be quoted with C escapes.
//
//   include common.conf                             another description, before what follows
//   board 9 "MBO board"                             number and name
//   dir /ffs [mode]                                 a folder
//   file /etc/version "text\n" [mode]               a plain file
//   data /path from.bin                             a plain file with the bytes of a file beside the description
//   dt board-identity/board-type u32 8 ...          a device-tree property of 32-bit cells,
//   dt board-identity/product-code string "x"       of text (closed by NUL),
//   dt virtual/mac bytes 02:00:00:00:00:01          or of bytes
//   link /dev/ttyX /dev/pts/0                       a symbolic link
//   program /usr/bin/l2u-dtb l2u-dtb.sh             a program stub from programs/ beside the description
//   node /dev/fpga_usr model fpga [size [mapped]]   a node served by a model; the kinds are those of NodeKind:
//                                                   plain model attribute channel notify signal;
//                                                   mapped: programs may map it
//   model uptime                                    a model that has no node
//   library libvboard-switch.so                     preloaded into every program before the board's library
//   init fpga set 0x0 0x17010203                    a control command when the board starts
//   environment NAME=value                          for every program of the board
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "page/page.h"

namespace vboard {

struct BoardFile {
    struct NodeLine {
        std::string path;
        NodeKind kind;
        std::string model;
        uint64_t size;
        bool is_mapped;
    };
    std::string name;
    unsigned number = 0;
    std::vector<NodeLine> nodes;
    std::vector<std::vector<std::string>> init;
    std::vector<std::string> environment;
    std::vector<std::string> models;             // models without nodes
    std::vector<std::string> libraries;          // libraries of the virtual board, by file name
    std::vector<std::vector<std::string>> files; // the statements that make files, in order
    std::string text;                            // the description with its includes inserted
};

// Throws std::runtime_error with file and line.
BoardFile read_board_file(const std::filesystem::path &path);

// Returns the place of a node below a folder of .vboard: kNodeFiles or kNodeHandles.
std::filesystem::path node_place(const std::filesystem::path &directory, const char *folder,
                                 const std::string &node_path);

// Makes a board directory from a description. The directory must be missing or empty.
void create_board(const std::filesystem::path &directory, const std::filesystem::path &description);

} // namespace vboard
