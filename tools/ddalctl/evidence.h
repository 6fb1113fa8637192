// What the library tells about a failed operation: its log lines, and what it accessed last.
#pragma once

#include <string>
#include <vector>

namespace ddalctl {

struct Evidence {
    std::string operation;          // that was called last, "ddal_ffs_mount"; empty without the library
    int error = 0;                  // errno of the access that failed; 0: none is known
    std::string path;               // of the access or the program that failed; empty: none is known
    bool is_serious = false;        // the lines are errors and warnings
    std::vector<std::string> lines; // errors and warnings of the log since then; all its lines if there are none
};

// Leads the log lines of the loaded library here instead of to standard error. A library without the extension goes on
// to write them there.
void collect_evidence(void *library);

// Forgets the evidence. Called before each operation.
void begin_evidence(const char *operation);

Evidence evidence();

// Adds the lines of a file to the log: the output of a program.
void add_output(int fd);

// Prints each further line at once on standard error, with its time.
void show_lines();
bool lines_are_shown();

} // namespace ddalctl
