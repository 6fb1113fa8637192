// Changes of a try: files of the board, accesses that change hardware, and lines in the log.
#pragma once

#include <map>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace campaign {

// The files of the board at one moment. The trace covers large sparse files (memory, register space).
class Files {
public:
    explicit Files(std::string root);

    // Returns the differences from the beginning: path and present state. Reads content only where the times differ.
    const std::map<std::string, std::string> &changes();
    // Restores the beginning, where the last changes() found differences.
    void restore();

private:
    struct Entry {
        struct stat status;
        std::string content; // of a file; the target of a link
    };
    std::map<std::string, struct stat> now() const;
    std::string content(const std::string &path, const struct stat &status) const;
    void write(const std::string &path, const Entry &entry) const;

    std::string root_;
    std::map<std::string, Entry> start_;
    std::map<std::string, std::string> changed_;
};

// The switch's tables and rules, which are not in files, on a board with a switch.
class SwitchTables {
public:
    SwitchTables();
    std::string changes() const;
    void restore() const;

private:
    bool there_ = false;
};

// Returns the lines that were added to a file since the last call.
class GrowingFile {
public:
    explicit GrowingFile(std::string path) : path_(std::move(path)) { take(); }
    // From `start` on, where that is further on.
    std::vector<std::string> take(long start = 0);

private:
    std::string path_;
    long position_ = 0;
};

// Returns the accesses of the trace that change something, without those of this process: "pwrite /dev/fpga_usr 1310980
// 05000000".
std::vector<std::string> changing_accesses(const std::vector<std::string> &trace);
// Returns priority, function and text of the log's lines, without process and source line.
std::vector<std::string> log_lines(const std::vector<std::string> &syslog);

} // namespace campaign
