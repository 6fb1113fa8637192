// Parser of firmware images in TI-TXT format.
#pragma once

#include <cstddef>
#include <cstdint>

#include <ddal/bsl.h>

#include "rf_card/record.h"
#include "rf_card/token.h"

namespace ddal::rf_card {

// Members that log have the names that their lines show.
class ImageParser {
public:
    // Parses a file of this size. Returns 0, 1 for an image without a version block, or -1 without memory. A failed
    // parse returns 0 and leaves list and version unchanged.
    int parse(bsl_record **list, uint8_t version[8], int fd, uint32_t file_size);
    // Empties the list and frees the data of its records. Logs a line when no data is held.
    void release(bsl_record *list);
    // Releases everything that a parse has stored. Logs nothing.
    void discard();

private:
    // Processes one byte of an image. Returns the new state.
    int bsl_file_fsm(uint8_t byte);
    bool take_byte();
    bool perform(uint8_t action, uint8_t byte);
    size_t take_pairs(const uint8_t *input, size_t length);
    bool read_image(int fd, uint32_t file_size);

    uint8_t state_ = BSL_FSM_IDLE;
    uint32_t address_ = 0;
    Token token_;
    RecordList records_;
};

// Returns the process's parser. Its records belong to the caller from bsl_parse_file() to bsl_parse_release().
ImageParser &image_parser();

} // namespace ddal::rf_card
