#include "command_line/roff.h"

namespace command_line {

std::string roff(const std::string &text)
{
    std::string escaped;
    for (const char c : text) {
        const bool begins_line = escaped.empty() || escaped.back() == '\n';
        if (begins_line && (c == '.' || c == '\''))
            escaped += "\\&";
        escaped += c == '\\' ? "\\e" : c == '-' ? "\\-" : std::string(1, c);
    }
    return escaped;
}

} // namespace command_line
