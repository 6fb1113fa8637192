// What standard output can show.
#pragma once

#include <cstddef>

namespace ddalctl {

// Whether standard output is a terminal that understands control sequences.
bool is_terminal();

// Whether to print colours: on such a terminal, unless NO_COLOR holds a text.
bool has_colours();

struct TerminalSize {
    size_t columns;
    size_t rows;
};
TerminalSize terminal_size();

} // namespace ddalctl
