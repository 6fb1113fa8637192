// Compares the microcontroller's flash with an image, and loads the image if required.
#pragma once

#include <cstdint>

#include "rf_card/link.h"
#include "rf_card/version.h"

namespace ddal::rf_card {

// A parsed image. The records stay in the process's parser until they are discarded.
struct Image {
    bsl_record *records = nullptr;
    uint8_t version[kVersionLength];
};

// The outcome of a code-load and the size of the image. A malformed image counts as 0 bytes.
struct Verdict {
    uint32_t status = BSL_STATUS_NOT_REQUIRED;
    uint32_t image_bytes = 0;
};

// Opens and parses an image. Returns 0, BSL_ERR_FILE or BSL_ERR_PARSE.
uint32_t load_image(const char *path, Image *image, uint32_t *status);

uint32_t bsl_verify_flash_image(Link &link, const bsl_record *list, bool *mismatch);
uint32_t bsl_codeload(Link &link, const char *path, Verdict *verdict, int force);

// Returns the number of bytes in the records.
uint32_t image_bytes(const bsl_record *list);

} // namespace ddal::rf_card
