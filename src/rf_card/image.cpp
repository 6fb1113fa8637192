#include "rf_card/image.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <unistd.h>

#include "core/log.h"
#include "rf_card/link.h"
#include "rf_card/version.h"

namespace ddal::rf_card {

namespace {

constexpr size_t kReadBlock = 16384;
constexpr size_t kPairLength = 3; // two digits and a separator

enum Input : uint8_t { kAt, kDigit, kBlank, kLineEnd, kQuit, kOther, kInputs };

constexpr std::array<Input, 256> make_inputs()
{
    std::array<Input, 256> inputs{};
    for (size_t byte = 0; byte < inputs.size(); ++byte)
        inputs[byte] = kNibbles[byte] != kNoNibble ? kDigit : kOther;
    inputs['@'] = kAt;
    inputs[' '] = kBlank;
    inputs['\r'] = inputs['\n'] = kLineEnd;
    inputs['q'] = inputs['Q'] = kQuit;
    return inputs;
}

constexpr std::array<Input, 256> kInputOf = make_inputs();

enum Action : uint8_t { kNothing, kOpen, kPush, kTakeByte, kTakeAddress, kRefuse };

struct Transition {
    Action action;
    uint8_t next;
};

constexpr Transition kStop{kRefuse, BSL_FSM_ERROR};

// clang-format off
constexpr Transition kTransitions[][kInputs] = {
    // "@"                         digit                     blank                       line end                             "q"                        other
    {{kNothing, BSL_FSM_ADDRESS}, kStop,                    {kNothing, BSL_FSM_IDLE},       {kNothing, BSL_FSM_IDLE},           {kNothing, BSL_FSM_DONE}, kStop},
    {{kNothing, BSL_FSM_ADDRESS}, {kOpen, BSL_FSM_DATA},    {kNothing, BSL_FSM_ADDR_DONE},  {kNothing, BSL_FSM_ADDR_DONE},      {kNothing, BSL_FSM_DONE}, kStop},
    {{kNothing, BSL_FSM_ADDRESS}, {kPush, BSL_FSM_DATA},    {kNothing, BSL_FSM_LINE_START}, {kNothing, BSL_FSM_LINE_START},     {kNothing, BSL_FSM_DONE}, kStop},
    {kStop,                       {kPush, BSL_FSM_ADDRESS}, {kNothing, BSL_FSM_ADDRESS},    {kTakeAddress, BSL_FSM_ADDR_DONE},  {kNothing, BSL_FSM_DONE}, kStop},
    {kStop,                       {kPush, BSL_FSM_DATA},    {kTakeByte, BSL_FSM_DATA},      {kTakeByte, BSL_FSM_LINE_START},    kStop,                    kStop},
    {kStop,                       {kNothing, BSL_FSM_DONE}, {kNothing, BSL_FSM_DONE},       {kNothing, BSL_FSM_DONE},           {kNothing, BSL_FSM_DONE}, kStop},
    {kStop,                       kStop,                    kStop,                          kStop,                              kStop,                    kStop},
};
// clang-format on
static_assert(sizeof kTransitions / sizeof *kTransitions == BSL_FSM_ERROR + 1);

// Reads an image file in blocks. At the end of the file it repeats the last byte, one at a time.
class ImageReader {
public:
    explicit ImageReader(int fd) : fd_(fd) {}

    // Returns true when a byte is available. Returns false and logs when the file cannot be read.
    bool fill()
    {
        if (next_ < end_)
            return true;
        const uint8_t last = end_ != 0 ? block_[end_ - 1] : 0;
        errno = 0;
        const ssize_t n = TEMP_FAILURE_RETRY(read(fd_, block_.data(), block_.size()));
        if (n <= 0 && errno != 0)
            return log_error_as("bsl_parse_file", false, "%s: ERROR: File read error (%d)\n", kTag, -errno);
        next_ = 0;
        end_ = n > 0 ? static_cast<size_t>(n) : 1;
        if (n <= 0)
            block_[0] = last;
        return true;
    }

    const uint8_t *data() const { return &block_[next_]; }
    size_t size() const { return end_ - next_; }
    void take(size_t n) { next_ += n; }

private:
    int fd_;
    size_t next_ = 0;
    size_t end_ = 0;
    std::array<uint8_t, kReadBlock> block_;
};

constinit ImageParser process_parser;

} // namespace

ImageParser &image_parser()
{
    return process_parser;
}

bool ImageParser::take_byte()
{
    uint32_t value = 0;
    const int popped = token_.pop_from_char_buffer(&value);
    if (popped > 0)
        return records_.record_append(static_cast<uint8_t>(value)) == 0;
    return popped == 0;
}

bool ImageParser::perform(uint8_t action, uint8_t byte)
{
    switch (action) {
    case kNothing: return true;
    case kOpen: return records_.record_create(address_) == 0 && token_.push_to_char_buffer(byte) == 0;
    case kPush: return token_.push_to_char_buffer(byte) == 0;
    case kTakeByte: return take_byte();
    case kTakeAddress: return token_.pop_from_char_buffer(&address_) > 0;
    default: return false;
    }
}

int ImageParser::bsl_file_fsm(uint8_t byte)
{
    const Transition &transition = kTransitions[state_][kInputOf[byte]];
    if (perform(transition.action, byte)) {
        state_ = transition.next;
    } else {
        log_line(LOG_ERR, "%s: File parser error: state = %d, input = 0x%02x\n", kTag, state_, byte);
        state_ = BSL_FSM_ERROR;
    }
    return state_;
}

// Processes a run of two-digit tokens as the state machine would byte by byte. Stops at the first other byte, which
// goes to the state machine. Returns the bytes used.
size_t ImageParser::take_pairs(const uint8_t *input, size_t length)
{
    if ((state_ != BSL_FSM_DATA && state_ != BSL_FSM_LINE_START) || !token_.empty())
        return 0;
    const RecordTail tail = records_.tail();
    const size_t most = std::min<size_t>(length / kPairLength, tail.room);

    size_t n = 0;
    for (const uint8_t *pair = input; n < most; ++n, pair += kPairLength) {
        const uint32_t high = kNibbles[pair[0]];
        const uint32_t low = kNibbles[pair[1]];
        const Input end = kInputOf[pair[2]];
        if ((high | low) > 0xF || (end != kBlank && end != kLineEnd))
            break;
        tail.end[n] = static_cast<uint8_t>(high << 4 | low);
    }
    if (n == 0)
        return 0;
    records_.extend(static_cast<uint32_t>(n));
    state_ = input[n * kPairLength - 1] == ' ' ? BSL_FSM_DATA : BSL_FSM_LINE_START;
    return n * kPairLength;
}

// Returns true when the image ends with its "q". Logs every other end.
bool ImageParser::read_image(int fd, uint32_t file_size)
{
    ImageReader reader{fd};
    uint64_t count = 0;
    while (state_ != BSL_FSM_DONE) {
        if (!reader.fill())
            return false;
        const size_t in_file = static_cast<size_t>(std::min<uint64_t>(reader.size(), file_size - count));
        if (const size_t used = take_pairs(reader.data(), in_file); used != 0) {
            reader.take(used);
            count += used;
            continue;
        }
        bsl_file_fsm(*reader.data());
        reader.take(1);
        if (++count > file_size)
            return log_error_as("bsl_parse_file", false, "%s: ERROR: File read length exceeded\n", kTag);
        if (state_ == BSL_FSM_ERROR) {
            constexpr unsigned kParseError = 2;
            log_line_as(LOG_ERR, "bsl_parse_file", "ERROR: bsl_parse_file = 0x%x\n", kParseError);
            return log_error_as("bsl_parse_file", false, "%s: ERROR: FSM returned an error at byte %d\n", kTag,
                                static_cast<int>(count));
        }
    }
    return true;
}

int ImageParser::parse(bsl_record **list, uint8_t version[8], int fd, uint32_t file_size)
{
    if (records_.data.master_buffer_init(file_size) != 0)
        return -1;
    token_.clear();
    state_ = BSL_FSM_IDLE;
    records_.unlink(records_.head());

    if (!read_image(fd, file_size)) {
        release(records_.head());
        return 0; // kept: a failed parse leaves list and version unchanged, because callers preset them
    }
    *list = records_.head();
    return bsl_get_file_version(*list, version);
}

void ImageParser::release(bsl_record *list)
{
    records_.unlink(list);
    records_.data.master_buffer_free();
}

void ImageParser::discard()
{
    records_.unlink(records_.head());
    if (records_.data.held())
        records_.data.master_buffer_free();
}

} // namespace ddal::rf_card

int bsl_parse_file(struct bsl_record **list, uint8_t version[8], int fd, uint32_t file_size)
{
    return ddal::rf_card::image_parser().parse(list, version, fd, file_size);
}

int bsl_get_file_version(struct bsl_record *list, uint8_t version[8])
{
    using namespace ddal::rf_card;

    const uint32_t wanted = bsl_get_up_version_addr();
    for (const bsl_record *record = list; record; record = record->next) {
        if (wanted < record->address || wanted - record->address >= record->length)
            continue;
        const uint32_t offset = wanted - record->address;
        if (record->length - offset >= kVersionLength) {
            memcpy(version, record->data + offset, kVersionLength);
            return 0;
        }
        log_line(LOG_ERR, "%s: ERROR: Partial version detected\n", kTag);
    }
    return 1;
}

void bsl_parse_release(struct bsl_record *list)
{
    ddal::rf_card::image_parser().release(list);
}
