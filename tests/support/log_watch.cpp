#include "support/log_watch.h"

#include <fstream>
#include <regex>
#include <sstream>
#include <unistd.h>

#include "support/board.h"

namespace testing_board {

namespace {

std::string log_path()
{
    return (board().directory() / ".vboard/syslog").string();
}

} // namespace

LogWatch::LogWatch()
{
    std::ifstream in(log_path(), std::ios::binary | std::ios::ate);
    position_ = in ? static_cast<long>(in.tellg()) : 0;
}

std::vector<std::string> LogWatch::take()
{
    static const std::regex source_line("^(\\w+):\\d+- |^(\\w+\\(\\)):\\d+ ");
    std::vector<std::string> lines;
    std::ifstream in(log_path(), std::ios::binary);
    in.seekg(position_);
    for (std::string line; std::getline(in, line);) {
        position_ += static_cast<long>(line.size()) + 1;
        std::istringstream words(line);
        pid_t pid = 0;
        int priority = 0;
        words >> pid >> priority;
        if (pid != getpid())
            continue;
        std::string text;
        std::getline(words.ignore(1), text);
        lines.push_back(std::to_string(priority) + " " + std::regex_replace(text, source_line, "$1$2: "));
    }
    return lines;
}

} // namespace testing_board
