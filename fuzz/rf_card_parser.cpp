// The image parser. For any file the records are valid and do not depend on how reads cut the file. A parse that gets
// one byte at a time sends every byte through the state machine.
//
// Input: one byte (length of the second parse's reads), then the file.
#include <ddal/bsl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <vector>

namespace {

constexpr int kImage = 1'000'000; // not a descriptor of the process
constexpr size_t kMaxReads = 100'000;

std::span<const uint8_t> unread;
size_t read_most;

void require(bool condition, const char *what)
{
    if (!condition) {
        fprintf(stderr, "%s\n", what);
        abort();
    }
}

struct Block {
    uint32_t address;
    uint16_t crc;
    std::vector<uint8_t> data;
    bool operator==(const Block &) const = default;
};

struct Outcome {
    int result;
    std::vector<uint8_t> version;
    std::vector<Block> blocks;
    bool operator==(const Outcome &) const = default;
};

uint16_t plain_crc(const std::vector<uint8_t> &data)
{
    uint16_t crc = bsl_crc_init();
    for (uint8_t byte : data)
        crc = bsl_crc_update(crc, byte);
    return crc;
}

Outcome parse(std::span<const uint8_t> file, size_t most)
{
    unread = file;
    read_most = most;
    bsl_record *list = nullptr;
    Outcome outcome;
    outcome.version.assign(8, 0xEE);
    outcome.result = bsl_parse_file(&list, outcome.version.data(), kImage, static_cast<uint32_t>(file.size()));
    require(file.empty() || unread.size() < file.size(), "the parser reads what it is given");

    const bsl_record *previous = nullptr;
    for (const bsl_record *record = list; record; previous = record, record = record->next) {
        require(record->prev == previous, "the list is linked both ways");
        require(record->length > 0, "a record holds data");
        outcome.blocks.push_back({record->address, record->crc, {record->data, record->data + record->length}});
        require(outcome.blocks.back().crc == plain_crc(outcome.blocks.back().data),
                "a record's CRC is that of its data");
    }
    require(outcome.blocks.size() <= 256, "no more records than the pool has");
    if (outcome.result == 1 || list)
        bsl_parse_release(list);
    return outcome;
}

} // namespace

extern "C" ssize_t __real_read(int fd, void *buffer, size_t length);

extern "C" ssize_t read_of_target(int fd, void *buffer, size_t length)
{
    if (fd != kImage)
        return __real_read(fd, buffer, length);
    const size_t n = std::min({length, read_most, unread.size()});
    std::copy_n(unread.begin(), n, static_cast<uint8_t *>(buffer));
    unread = unread.subspan(n);
    return static_cast<ssize_t>(n);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const std::span file{data + 1, size - 1};
    const Outcome whole = parse(file, SIZE_MAX);
    if (size < kMaxReads)
        require(parse(file, data[0] % 8 + 1) == whole, "reads of another length give the same records");
    return 0;
}
