// Brings the microcontroller's flash to the contents of an image.
#pragma once

#include <cstdint>

#include "bsl/link.h"
#include "bsl/version.h"

namespace ddal::bsl {

// A parsed image. The records live in the parser until discard_image.
struct Image {
    bsl_record *records = nullptr;
    uint8_t version[kVersionLength];
};

// How a code-load ended, and how much there was to load: a file that is no image ends as one without any bytes.
struct Verdict {
    uint32_t status = BSL_STATUS_NOT_REQUIRED;
    uint32_t image_bytes = 0;
};

// Opens and parses: 0, BSL_ERR_FILE or BSL_ERR_PARSE.
uint32_t load_image(const char *path, Image *image, uint32_t *status);

uint32_t bsl_verify_flash_image(Link &link, const bsl_record *list, bool *mismatch);
uint32_t bsl_codeload(Link &link, const char *path, Verdict *verdict, int force);

// Bytes that the records hold.
uint32_t image_bytes(const bsl_record *list);

} // namespace ddal::bsl
