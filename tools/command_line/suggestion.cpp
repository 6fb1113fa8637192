#include "command_line/suggestion.h"

#include <algorithm>

namespace command_line {

namespace {

// Counts the characters to add, remove, change or swap with the next one.
size_t distance(const std::string &a, const std::string &b)
{
    std::vector<std::vector<size_t>> steps(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i) {
        for (size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                steps[i][j] = i + j;
                continue;
            }
            steps[i][j] = std::min(
                {steps[i - 1][j] + 1, steps[i][j - 1] + 1, steps[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
        }
    }
    return steps[a.size()][b.size()];
}

} // namespace

std::string suggestion(const std::string &word, const std::vector<std::string> &candidates)
{
    constexpr size_t kLongestName = 64; // the comparison takes time with the square of the length
    if (word.size() > kLongestName)
        return {};
    const std::string *closest = nullptr;
    size_t least = std::min<size_t>(3, word.size());
    for (const std::string &candidate : candidates) {
        const size_t steps = candidate.starts_with(word) && word.size() > 1 ? 0 : distance(word, candidate);
        if (steps < least) {
            least = steps;
            closest = &candidate;
        }
    }
    return closest ? "; did you mean \"" + *closest + "\"?" : "";
}

} // namespace command_line
