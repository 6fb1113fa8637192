// Texts of the result codes.
#include <ddal/error.h>

#include <climits>
#include <cstring>

#include "core/text.h"

namespace {

struct CodeText {
    int code;
    const char *text;
};

constexpr CodeText kTexts[] = {
    {DDAL_ERR_FAILURE, "ddal failure (cause unknown)"},
    {DDAL_ERR_SYSTEM, "ddal system error"},
    {DDAL_ERR_TIMEOUT, "ddal timeout"},
    {DDAL_ERR_FPGA_INVALID_FPGA_ID, "ddal fpga invalid FPGA id specified"},
    {DDAL_ERR_FPGA_INVALID_IMAGE_ID, "ddal fpga invalid image id specified"},
    {DDAL_ERR_FPGA_NOT_SUPPORTED, "ddal fpga specified FPGA is not supported"},
    {DDAL_ERR_FPGA_GOLDEN_NOT_ACTIVE, "ddal fpga 'golden' image not active, no version available"},
    {DDAL_ERR_FPGA_VERSION_MISMATCH, "ddal fpga config image and device tree version mismatch"},
    {DDAL_ERR_FPGA_VALIDITY_UNKNOWN, "ddal fpga validity information is unknown"},
    {DDAL_ERR_FPGA_VALIDITY_UNAVAILABLE, "ddal fpga validity information is not available"},
    {DDAL_ERR_FPGA_IMAGE_EMPTY, "ddal fpga specified image/device tree is empty"},
    {DDAL_ERR_FPGA_IMAGE_MARKED_INVALID, "ddal fpga specified image is used but marked invalid"},
    {DDAL_ERR_FPGA_BAD_CRC, "ddal fpga specified image/device tree has incorrect CRC"},
    {DDAL_ERR_FPGA_NO_DEVICE_TREE, "ddal fpga no valid device tree available"},
    {DDAL_ERR_FPGA_UPDATE_NOT_ACTIVE, "ddal fpga 'update' image not active, no version available"},
};

const char *text_of(int code, char *buf, size_t buflen)
{
    if (code >= 0)
        return "success";
    for (const CodeText &entry : kTexts) {
        if (entry.code == code)
            return entry.text;
    }
    return strerror_r(code == INT_MIN ? code : -code, buf, buflen);
}

} // namespace

int ddal_strerror(int code, char *buf, size_t buflen)
{
    if (buflen == 0)
        return 0;
    const char *text = text_of(code, buf, buflen);
    if (text != buf)
        ddal_common_strlcpy(buf, text, buflen);
    return 0;
}
