// ddalctl rfcard: firmware and application of the RF card's microcontroller.
#include <ddal/bsl.h>
#include <ddal/error.h>
#include <ddal/ext.h>
#include <ddal/rfup.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/progress.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

constexpr uint8_t kStatusQuery = 0x00;
constexpr uint8_t kReady = 0x5A;
constexpr size_t kMessageMax = 252; // bytes, both directions together

struct StatusText {
    uint32_t status;
    const char *text;
};

constexpr StatusText kStatusTexts[] = {
    {BSL_STATUS_NOT_REQUIRED, "the flash already holds this image"},
    {BSL_STATUS_SUCCESSFUL, "programmed and verified"},
    {BSL_STATUS_EMPTY, "the image file is empty"},
    {BSL_STATUS_NOT_PARSED, "the image could not be parsed"},
    {BSL_STATUS_NOT_READABLE, "the card's version or contents could not be read"},
    {BSL_STATUS_ERASE_FAILED, "erasing failed: the card needs another upgrade"},
    {BSL_STATUS_PROGRAM_FAILED, "programming failed: the card needs another upgrade"},
    {BSL_STATUS_MISMATCH, "the flash differs from the image after programming: the card needs another upgrade"},
    {BSL_STATUS_NOT_VERIFIED, "programmed, but the flash could not be read back"},
};

std::string text_of_status(uint32_t status)
{
    for (const StatusText &row : kStatusTexts) {
        if (row.status == status)
            return row.text;
    }
    return "status " + std::to_string(status);
}

std::string digits_of(const uint8_t *bytes, size_t count)
{
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        char digits[4];
        snprintf(digits, sizeof digits, "%02x", bytes[i]);
        text += digits;
    }
    return text;
}

bool application_ready()
{
    uint8_t status[2] = {};
    return DDAL(ddal_rfup_msg)(kStatusQuery, 0, nullptr, sizeof status, status) == 0 && status[1] == kReady;
}

void require_card(int result)
{
    if (result == -EBUSY)
        throw Failure(result, kOperationFailed,
                      "another process is working on the RF card; retry when it has finished");
    require(result);
}

// Prefers the verdict to the result, because it is more specific.
void require_upgrade(int result, uint32_t status)
{
    if (result != 0 && status != BSL_STATUS_NOT_REQUIRED && status != BSL_STATUS_SUCCESSFUL)
        throw Failure(result, kOperationFailed, text_of_status(status));
    require_card(result);
    if (status != BSL_STATUS_NOT_REQUIRED && status != BSL_STATUS_SUCCESSFUL)
        throw Failure(DDAL_ERR_FAILURE, kOperationFailed, text_of_status(status));
}

int verbosity(const Arguments &arguments)
{
    return arguments.given("--log-bytes") ? 2 : 0; // values above 1 log the bytes
}

void upgrade(const Arguments &arguments, Report &report)
{
    uint32_t status = BSL_STATUS_NOT_REQUIRED;
    uint32_t programmed = 0;
    int result = 0;
    {
        const HoldWhileWriting hold;
        Progress progress(report.json());
        result = DDAL(ddal_ext_rfcard_upgrade)(arguments.text("IMAGE").c_str(),
                                               static_cast<int>(arguments.number_or("--all", 0)), verbosity(arguments),
                                               Progress::report, &progress, &status);
        programmed = progress.programmed();
    }
    require_upgrade(result, status);
    if (!application_ready())
        throw Failure(DDAL_ERR_FAILURE, kOperationFailed,
                      text_of_status(status) + ", but the card's application does not report ready");
    report.add("verdict", text_of_status(status));
    report.add("programmed", uint64_t{programmed}, std::to_string(programmed) + " bytes");
    report.add_flag("ready", true);
}

void verify(const Arguments &arguments, Report &report)
{
    int identical = 0;
    {
        const HoldWhileWriting hold;
        Progress progress(report.json());
        require_card(DDAL(ddal_ext_rfcard_verify)(arguments.text("IMAGE").c_str(), verbosity(arguments),
                                                  Progress::report, &progress, &identical));
    }
    if (identical == 0)
        throw Failure(DDAL_ERR_FAILURE, kOperationFailed, "the flash differs from the image");
    report.add_flag("identical", true);
}

void version(const Arguments &, Report &report)
{
    uint8_t loader[4] = {};
    uint8_t application[8] = {};
    require_card(DDAL(ddal_ext_rfcard_version)(loader, application, 0));
    report.add("loader", digits_of(loader, sizeof loader));
    report.add("application", digits_of(application, sizeof application));
}

void message(const Arguments &arguments, Report &report)
{
    std::vector<uint8_t> sent;
    if (arguments.given("--send"))
        sent = arguments.bytes("--send");
    std::vector<uint8_t> received(arguments.number_or("--receive", 0));
    if (sent.size() + received.size() > kMessageMax)
        throw WrongUse("--send and --receive: " + std::to_string(sent.size() + received.size()) +
                       " bytes do not fit into one message, which takes 0 to " + std::to_string(kMessageMax));
    require(DDAL(ddal_rfup_msg)(static_cast<uint8_t>(arguments.number("OPCODE")), static_cast<uint8_t>(sent.size()),
                                sent.data(), static_cast<uint8_t>(received.size()), received.data()));
    if (!received.empty())
        report.add("received", digits_of(received.data(), received.size()));
}

void reset(const Arguments &, Report &report)
{
    require_card(DDAL(ddal_ext_rfcard_restart)(0));
    report.add_flag("ready", true);
}

} // namespace

Family rfcard_family()
{
    const Argument image = file("IMAGE", "firmware image in TI-TXT format");
    const Argument link_log = {"--log-bytes", Kind::flag, "log every byte of the link to the system log"};
    return {"rfcard",
            "firmware and application of the RF card's microcontroller",
            {
                {"upgrade",
                 "load an image into the card if its flash differs; takes minutes and must not be interrupted",
                 {image,
                  {"--all", Kind::number, "1: always load the image and rewrite the loader; 2: rewrite the loader",
                   true, 2},
                  link_log},
                 upgrade},
                {"verify", "compare the card's flash with an image; restarts the card", {image, link_log}, verify},
                {"version", "show the versions of loader and application; restarts the card", {}, version},
                {"message",
                 "send a message to the card's application",
                 {{"OPCODE", Kind::number,
                   "opcode of the message; 0 requests the status, whose second byte is 5a when ready", false, 255},
                  {"--send", Kind::bytes, "bytes to send"},
                  {"--receive", Kind::number, "bytes to receive", true, kMessageMax}},
                 message},
                {"reset", "restart the card's application and wait until it is ready", {}, reset},
            }};
}

} // namespace ddalctl
