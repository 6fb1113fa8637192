// The RF card of the board that runs the test, and the images for it.
#pragma once

#include <ddal/bsl.h>
#include <ddal/ext.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "support/board.h"

namespace testing_rf_card {

using Bytes = std::vector<uint8_t>;
using testing_board::ctl;

constexpr const char *kFirstVersion = "0000000001040207";

inline std::string image(const std::string &name)
{
    return std::string(DDAL_TEST_IMAGES) + "/" + name;
}

// Returns a block of an image as the tool that made the image wrote it.
inline Bytes block(const std::string &name)
{
    std::ifstream in(image(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline std::string digits(const Bytes &bytes)
{
    std::string text;
    for (uint8_t byte : bytes) {
        char pair[4];
        snprintf(pair, sizeof pair, "%02x", byte);
        text += pair;
    }
    return text;
}

// Returns one word of the model's state: card_state("mode") is "application".
inline std::string card_state(const std::string &name)
{
    std::istringstream words(ctl("rf-card state"));
    std::string word, value;
    while (words >> word >> value)
        if (word == name)
            return value;
    return {};
}

// Returns the commands that reached the loader since the last reset_card, two digits each.
inline std::string card_commands()
{
    std::string text = ctl("rf-card commands");
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

inline std::string flash(uint32_t address, size_t length)
{
    constexpr size_t kPiece = 16384; // one answer of the board cannot hold more
    std::string text;
    for (size_t done = 0; done < length; done += kPiece) {
        text += ctl("rf-card peek " + std::to_string(address + done) + " " +
                    std::to_string(std::min(kPiece, length - done)));
        text.pop_back(); // the line end
    }
    return text;
}

// Restores the card's state at the start of the board, except for the rest of its flash.
inline void reset_card()
{
    ctl("rf-card fault clear");
    ctl("rf-card version " + std::string(kFirstVersion));
    ctl("rf-card loader-version 00083553");
    ctl("rf-card password 0xff");
    ctl("rf-card ready-time 500");
}

// Discards standard error, on which the library repeats its log.
class QuietErrors {
public:
    QuietErrors() : saved_(fcntl(2, F_DUPFD_CLOEXEC, 500))
    {
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(null, 2);
        close(null);
    }
    ~QuietErrors()
    {
        dup2(saved_, 2);
        close(saved_);
    }
    QuietErrors(const QuietErrors &) = delete;
    QuietErrors &operator=(const QuietErrors &) = delete;

private:
    int saved_;
};

struct Upgrade {
    int result;
    uint32_t status;
};

inline Upgrade upgrade(const std::string &path, int upgrade_all = 0, ddal_ext_rfcard_progress progress = nullptr,
                       void *context = nullptr)
{
    const QuietErrors quiet;
    Upgrade upgraded{99, 99};
    upgraded.result = ddal_ext_rfcard_upgrade(path.c_str(), upgrade_all, 0, progress, context, &upgraded.status);
    return upgraded;
}

} // namespace testing_rf_card
