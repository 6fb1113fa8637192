#include "rf_card/codeload.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

#include "core/log.h"
#include "core/unique_fd.h"
#include "rf_card/command.h"
#include "rf_card/crc.h"
#include "rf_card/image.h"
#include "rf_card/uart.h"

namespace ddal::rf_card {

namespace {

constexpr const char *kCodeload = "bsl_codeload"; // name of the procedure in the log
constexpr uint32_t kPieceMax = 65535;             // longest block of one bsl_rx_data
constexpr int kForced = 1;                        // kept: no other value forces

// Releases the parser's memory however the code-load ends.
struct ImageRelease {
    ImageRelease() = default;
    ImageRelease(const ImageRelease &) = delete;
    ImageRelease &operator=(const ImageRelease &) = delete;
    ~ImageRelease() { image_parser().discard(); }
};

void begin(Link &link, ddal_ext_rfcard_phase phase, const bsl_record *list)
{
    if (link.progress)
        link.progress->begin(phase, image_bytes(list));
}

uint32_t bsl_prep_file(const char *path, core::UniqueFd *fd, uint32_t *file_size, uint32_t *status)
{
    fd->reset(open(path, O_RDONLY | O_CLOEXEC));
    if (!*fd)
        return log_error(BSL_ERR_FILE, "%s: ERROR: Unable to open file %s: %m\n", kTag, path);

    struct stat info {};
    int failed = fstat(fd->get(), &info);
    if (failed == 0 && info.st_size > UINT32_MAX) {
        errno = EFBIG;
        failed = -1;
    }
    if (failed != 0)
        return log_error(BSL_ERR_FILE, "%s: ERROR: Unable to stat file %s: %m\n", kTag, path);
    if (info.st_size == 0) {
        *status = BSL_STATUS_EMPTY;
        return log_error(BSL_ERR_FILE, "%s: ERROR: Unable to download file\n", kTag);
    }
    *file_size = static_cast<uint32_t>(info.st_size);
    return 0;
}

uint32_t open_and_parse(const char *path, Image *image, uint32_t *status)
{
    core::UniqueFd fd;
    uint32_t file_size = 0;
    if (const uint32_t result = bsl_prep_file(path, &fd, &file_size, status); result != 0)
        return result;

    const int parsed = bsl_parse_file(&image->records, image->version, fd.get(), file_size);
    if (parsed < 0) {
        *status = BSL_STATUS_NOT_PARSED;
        return BSL_ERR_PARSE;
    }
    if (parsed > 0)
        return log_error_as(kCodeload, BSL_ERR_PARSE, "%s: ERROR: Unable to retrieve version from file\n", kTag);
    return 0;
}

uint16_t chunk_crc(const bsl_record &record, uint32_t offset, uint32_t length)
{
    return length == record.length ? record.crc : crc_update(kCrcStart, record.data + offset, length);
}

uint32_t verify_record(Link &link, const bsl_record &record, uint32_t chunk_max, bool *mismatch)
{
    for (uint32_t offset = 0; offset < record.length && !*mismatch;) {
        const uint32_t length = std::min(record.length - offset, chunk_max);
        const uint32_t start = record.address + offset;
        const uint16_t expected = chunk_crc(record, offset, length);
        // The value differs from the expected one, so that a loader that answers without a CRC does not count as a
        // match.
        uint16_t crc = static_cast<uint16_t>(~expected);
        if (const uint32_t result = bsl_crc_check(link, start, static_cast<uint16_t>(length), &crc); result != 0)
            return log_error_as("bsl_verify_flash_image", result, "%s: Unable to determine CRC in flash\n", kTag);
        if (crc != expected) {
            log_line_as(LOG_ERR, "bsl_verify_flash_image", "%s: CRC Mismatch detected on range:\n", kTag);
            log_line_as(LOG_ERR, "bsl_verify_flash_image", "%s: 0x%lx - 0x%lx... (length=0x%x)\n", kTag,
                        static_cast<unsigned long>(start), static_cast<unsigned long>(start + length - 1), length);
            *mismatch = true;
        }
        report_bytes(link, length);
        offset += length;
    }
    return 0;
}

// Sets *required; on failure sets *status.
uint32_t bsl_codeload_required(Link &link, const Image &image, uint32_t *status, bool *required)
{
    uint8_t flash_version[kVersionLength];
    memset(flash_version, 0xFF, sizeof flash_version);
    begin(link, DDAL_EXT_RFCARD_COMPARE, image.records);
    if (const uint32_t result = bsl_tx_app_ver(link, flash_version); result != 0) {
        *status = BSL_STATUS_NOT_READABLE;
        return log_error(result, "%s: ERROR: Unable to retrieve uP version\n", kTag);
    }
    bsl_print_file_version("BSL: Current uP image: ", flash_version);
    if (memcmp(flash_version, image.version, kVersionLength) != 0) {
        *required = true;
        return 0;
    }
    const uint32_t result = bsl_verify_flash_image(link, image.records, required);
    if (result != 0)
        *status = BSL_STATUS_NOT_READABLE;
    return result;
}

uint32_t bsl_erase_image(Link &link, const bsl_record *list)
{
    uint32_t first = 0;
    uint32_t last = 0;
    log_line(LOG_INFO, "%s: Erasing uP flash...\n", kTag);
    begin(link, DDAL_EXT_RFCARD_ERASE, list);
    for (const bsl_record *record = list; record; record = record->next) {
        const uint64_t record_last = static_cast<uint64_t>(record->address) + record->length - 1;
        if (record_last <= last && record->address >= first)
            continue;
        if (const uint32_t result = bsl_erase(link, record->address, record->length, &first, &last); result != 0)
            return log_error(result, "%s: ERROR\n", kTag);
        __ddal_log(LOG_INFO, "%s: 0x%x - 0x%x... ", kTag, first, last);
        __ddal_log(LOG_INFO, "%s: done", kTag);
    }
    return 0;
}

uint32_t program_record(Link &link, const bsl_record &record)
{
    if (record.length > kPieceMax)
        __ddal_log(LOG_INFO, "%s: Splitting up write of %lu bytes to 0x%lx...\n", kTag,
                   static_cast<unsigned long>(record.length), static_cast<unsigned long>(record.address));

    uint32_t result = 0;
    for (uint32_t offset = 0; offset < record.length && result == 0;) {
        const uint32_t length = std::min(record.length - offset, kPieceMax);
        result = bsl_rx_data(link, record.address + offset, record.data + offset, length);
        offset += length;
    }
    return result;
}

uint32_t program_image(Link &link, const bsl_record *list)
{
    __ddal_log(LOG_DEBUG, "%s: Programming RF Card...\n", kTag);
    begin(link, DDAL_EXT_RFCARD_PROGRAM, list);
    for (const bsl_record *record = list; record; record = record->next) {
        if (const uint32_t result = program_record(link, *record); result != 0)
            return result;
    }
    return 0;
}

uint32_t write_image(Link &link, const bsl_record *list, uint32_t *status)
{
    if (const uint32_t result = bsl_erase_image(link, list); result != 0) {
        *status = BSL_STATUS_ERASE_FAILED;
        return log_error_as(kCodeload, result, "%s: ERROR: Unable to erase!\n", kTag);
    }
    if (const uint32_t result = program_image(link, list); result != 0) {
        *status = BSL_STATUS_PROGRAM_FAILED;
        return log_error_as(kCodeload, result, "%s: ERROR: Codeload failed!\n", kTag);
    }
    return 0;
}

// kept: only the status shows a mismatch
uint32_t judge_image(Link &link, const bsl_record *list, uint32_t *status)
{
    bool mismatch = false;
    begin(link, DDAL_EXT_RFCARD_VERIFY, list);
    const uint32_t result = bsl_verify_flash_image(link, list, &mismatch);
    if (result != 0) {
        *status = BSL_STATUS_NOT_VERIFIED;
        log_line_as(LOG_ERR, kCodeload, "%s: ERROR: Unable to verify codeloaded image\n", kTag);
    } else if (mismatch) {
        *status = BSL_STATUS_MISMATCH;
        log_line_as(LOG_ERR, kCodeload, "%s: ERROR: Codeloaded image failed integrity check\n", kTag);
    } else {
        *status = BSL_STATUS_SUCCESSFUL;
        __ddal_log(LOG_DEBUG, "%s: Codeload successful\n", kTag);
    }
    return result;
}

} // namespace

uint32_t image_bytes(const bsl_record *list)
{
    uint32_t bytes = 0;
    for (const bsl_record *record = list; record; record = record->next)
        bytes += record->length;
    return bytes;
}

uint32_t load_image(const char *path, Image *image, uint32_t *status)
{
    image->records = nullptr;
    memset(image->version, 0xFF, sizeof image->version);
    const uint32_t result = open_and_parse(path, image, status);
    if (result != 0)
        return log_error_as(kCodeload, result, "%s: ERROR: Unable to retrieve/parse file \"%s\" (error code = %d)\n",
                            kTag, path, *status);
    bsl_print_file_version("BSL: image file contains uP version: ", image->version);
    return 0;
}

uint32_t bsl_verify_flash_image(Link &link, const bsl_record *list, bool *mismatch)
{
    const uint32_t chunk_max = bsl_get_crc_max_length();
    __ddal_log(LOG_INFO, "%s: Verifying uP image in flash...", kTag);
    *mismatch = false;
    for (const bsl_record *record = list; record && !*mismatch; record = record->next) {
        if (const uint32_t result = verify_record(link, *record, chunk_max, mismatch); result != 0)
            return result;
    }
    return 0;
}

uint32_t bsl_codeload(Link &link, const char *path, Verdict *verdict, int force)
{
    const ImageRelease release;
    Image image;
    uint32_t *const status = &verdict->status;
    *status = BSL_STATUS_NOT_REQUIRED;
    if (const uint32_t result = load_image(path, &image, status); result != 0)
        return result;
    verdict->image_bytes = image_bytes(image.records);

    bool required = force == kForced;
    if (!required) {
        if (const uint32_t result = bsl_codeload_required(link, image, status, &required); result != 0)
            return log_error(result, "%s: ERROR: Unable to retreive current uP version number\n", kTag);
    }
    if (!required) {
        __ddal_log(LOG_DEBUG, "%s: Codeload not required\n", kTag);
        return 0;
    }

    if (const uint32_t result = write_image(link, image.records, status); result != 0)
        return result;
    const uint32_t result = judge_image(link, image.records, status);
    bsl_parse_release(image.records);
    return result;
}

} // namespace ddal::rf_card

uint32_t bsl_codeload(int fd, const char *path, uint32_t *status, int force, int verbose)
{
    ddal::rf_card::UartLink link{fd, verbose};
    ddal::rf_card::Verdict verdict;
    const uint32_t result = ddal::rf_card::bsl_codeload(link, path, &verdict, force);
    *status = verdict.status;
    return result;
}
