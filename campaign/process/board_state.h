// What a try changed: files of the board, accesses that change hardware, and the lines in the log.
#pragma once

#include <map>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace campaign {

// The files of the board at one moment. A large sparse file (memory, register space) is left to the trace.
class Files {
public:
    explicit Files(std::string root);

    // What differs from the beginning: path and how it is now. Looks at content only where the times differ.
    const std::map<std::string, std::string> &changes();
    // Brings the beginning back, where the last changes() found differences.
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

// The switch, which is not in files: its tables and rules, on a board that has one.
class SwitchTables {
public:
    SwitchTables();
    std::string changes() const;
    void restore() const;

private:
    bool there_ = false;
};

// The lines that a file grew by since the last look.
class GrowingFile {
public:
    explicit GrowingFile(std::string path) : path_(std::move(path)) { take(); }
    // From `start` on, where that is further on.
    std::vector<std::string> take(long start = 0);

private:
    std::string path_;
    long position_ = 0;
};

// Accesses of the trace that change something, without those of this process: "pwrite /dev/fpga_usr 1310980 05000000".
std::vector<std::string> changing_accesses(const std::vector<std::string> &trace);
// Priority, function and text of the log's lines, without process and source line.
std::vector<std::string> log_lines(const std::vector<std::string> &syslog);

} // namespace campaign
