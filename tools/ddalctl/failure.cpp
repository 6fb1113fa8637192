#include "ddalctl/failure.h"

#include <cerrno>
#include <cstring>

#include <ddal/error.h>

#include "ddalctl/library.h"

namespace ddalctl {

namespace {

struct CodeName {
    int code;
    const char *name;
};

constexpr CodeName kCodeNames[] = {
    {DDAL_ERR_FAILURE, "DDAL_ERR_FAILURE"},
    {DDAL_ERR_SYSTEM, "DDAL_ERR_SYSTEM"},
    {DDAL_ERR_TIMEOUT, "DDAL_ERR_TIMEOUT"},
    {DDAL_ERR_TRBL_STORE, "DDAL_ERR_TRBL_STORE"},
    {DDAL_ERR_NO_FRAME_INFO, "DDAL_ERR_NO_FRAME_INFO"},
    {DDAL_ERR_WIFI_SUPPORT, "DDAL_ERR_WIFI_SUPPORT"},
    {DDAL_ERR_UNKNOWN_PARAMETER, "DDAL_ERR_UNKNOWN_PARAMETER"},
    {DDAL_ERR_PASSWORD_REFUSED, "DDAL_ERR_PASSWORD_REFUSED"},
    {DDAL_ERR_USER_NOT_SUPPORTED, "DDAL_ERR_USER_NOT_SUPPORTED"},
};

// ddal_strerror has one general text for the codes of this switch.
std::string text_of_code(int code)
{
    switch (code) {
    case DDAL_ERR_TRBL_STORE: return "the trouble log could not be stored";
    case DDAL_ERR_NO_FRAME_INFO: return "no frame information: the frame driver has no frame count";
    case DDAL_ERR_WIFI_SUPPORT: return "Wi-Fi support unknown";
    case DDAL_ERR_UNKNOWN_PARAMETER: return "unknown parameter";
    case DDAL_ERR_PASSWORD_REFUSED: return "password refused";
    case DDAL_ERR_USER_NOT_SUPPORTED: return "not one of the service accounts";
    default: break;
    }
    return library_text(code);
}

// "function:line- text", without its place.
std::string text_of_line(const std::string &line)
{
    const size_t end = line.find("- ");
    return end == std::string::npos ? line : line.substr(end + 2);
}

} // namespace

std::string text_without_access(int code, const Evidence &evidence)
{
    if (code < 0 && strerrorname_np(-code))
        return strerror(-code);
    if (evidence.is_serious || (evidence.path.empty() && !evidence.lines.empty()))
        return text_of_line(evidence.lines.back());
    return evidence.path.empty() ? "" : "an unexpected answer";
}

namespace {

std::string cause_of(int code, const Evidence &evidence)
{
    if (code != DDAL_ERR_FAILURE && code != DDAL_ERR_SYSTEM)
        return text_of_code(code);
    if (evidence.error != 0)
        return strerror(evidence.error);
    const std::string text = text_without_access(code, evidence);
    return text.empty() ? "the library gives no cause" : text;
}

ExitStatus status_of_code(int code)
{
    return code == -ENOENT || code == -ENODEV || code == -ENXIO ? kNothingThere : kOperationFailed;
}

} // namespace

std::string name_of_code(int code)
{
    for (const CodeName &row : kCodeNames) {
        if (row.code == code)
            return row.name;
    }
    const char *name = strerrorname_np(-code);
    return name ? name : "";
}

WrongUse::WrongUse(const std::string &text) : Failure(-EINVAL, kWrongUse, text) {}

Failure failure_of(int result)
{
    Failure failure(result, status_of_code(result), cause_of(result, evidence()));
    failure.is_cause_ = true;
    return failure;
}

void require(int result, int success)
{
    if (result != success)
        throw failure_of(result);
}

} // namespace ddalctl
