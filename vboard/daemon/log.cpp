#include "daemon/log.h"

#include <iostream>

namespace vboard {

void log_line(const std::string &text)
{
    static uint64_t written;
    if (written >= kDaemonLogLimit)
        return;
    written += text.size() + 1;
    std::cerr << text << std::endl;
    if (written >= kDaemonLogLimit)
        std::cerr << "the log has reached " << kDaemonLogLimit << " bytes and ends here" << std::endl;
}

void keep_line(std::string &list, const std::string &line)
{
    constexpr size_t kMost = 1 << 20;
    list += line + "\n";
    if (list.size() > kMost)
        list.erase(0, list.find('\n', list.size() / 2) + 1);
}

} // namespace vboard
