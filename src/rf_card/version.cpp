#include "rf_card/version.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <syslog.h>

#include <ddal/bsl.h>

#include "identity/boards.h"

namespace {

using ddal::rf_card::kVersionLength;

struct FlashLayout {
    uint32_t version_address;
    uint32_t crc_max_length;
};

constexpr FlashLayout kSmallFlash{0xEA00, 32767};
constexpr FlashLayout kUsualFlash{0x9000, 65535};

const FlashLayout &layout()
{
    return ddal::identity::this_board().small_rf_flash ? kSmallFlash : kUsualFlash;
}

// Up to five leading zero bytes are not printed; the last three bytes always are.
constexpr uint32_t kFractionIndex = kVersionLength - 1;
constexpr uint32_t kLastStart = kFractionIndex - 1;

constexpr uint32_t kBytesPerLine = 16;
constexpr uint32_t kGroup = 8;

void print_line(const uint8_t *bytes, uint32_t count)
{
    char text[kBytesPerLine * 4 + 8];
    char *end = text;
    for (uint32_t i = 0; i < count; ++i) {
        end += snprintf(end, static_cast<size_t>(std::end(text) - end), "%02x ", bytes[i]);
        if ((i + 1) % kGroup == 0)
            end += snprintf(end, static_cast<size_t>(std::end(text) - end), "  ");
    }
    for (uint32_t i = 0; i < count; ++i)
        *end++ = bytes[i] >= ' ' && bytes[i] <= '~' ? static_cast<char>(bytes[i]) : '.';
    *end = '\0';
    syslog(LOG_DEBUG, "%s\n", text);
}

} // namespace

uint32_t bsl_get_up_version_addr(void)
{
    return layout().version_address;
}

uint32_t bsl_get_crc_max_length(void)
{
    return layout().crc_max_length;
}

void bsl_print_file_version(const char *prefix, const uint8_t version[8])
{
    constexpr int kTextMax = 128;
    char text[kTextMax + 1] = "Blank";
    const uint8_t *end = version + kVersionLength;

    if (!std::all_of(version, end, [](uint8_t byte) { return byte == 0xFF; })) {
        const uint8_t *start = std::find_if(version, version + kLastStart, [](uint8_t byte) { return byte != 0; });
        char *out = text;
        for (; start < version + kFractionIndex; ++start)
            out += snprintf(out, static_cast<size_t>(std::end(text) - out), "%02x", *start);
        snprintf(out, static_cast<size_t>(std::end(text) - out), ".%02x", version[kFractionIndex]);
    }
    syslog(LOG_DEBUG, "%s%.*s\n", prefix, kTextMax, text);
}

void bsl_print_memory(const void *buffer, uint32_t length)
{
    const auto *bytes = static_cast<const uint8_t *>(buffer);
    for (uint32_t done = 0; done < length; done += std::min(length - done, kBytesPerLine))
        print_line(bytes + done, std::min(length - done, kBytesPerLine));
}
