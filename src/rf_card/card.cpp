// Read-only operations on the RF card, and its restart.
#include <ddal/ext.h>

#include <syslog.h>

#include "core/log.h"
#include "rf_card/codeload.h"
#include "rf_card/command.h"
#include "rf_card/image.h"
#include "rf_card/pins.h"
#include "rf_card/uart.h"
#include "rf_card/upgrade.h"

namespace {

using namespace ddal::rf_card;

int read_versions(Session &session, uint8_t loader[4], uint8_t application[8])
{
    if (read_loader_version(session, Loader::current, loader) != 0)
        return log_error(DDAL_ERR_FAILURE, "BSL: ERROR: Unable to read BSL version\n");
    session.loader_known = true;
    if (unlock_loader(session) != 0)
        return DDAL_ERR_FAILURE;
    UartLink link{session.uart.get(), session.verbose};
    if (bsl_tx_app_ver(link, application) != 0)
        return log_error(DDAL_ERR_FAILURE, "%s: ERROR: Unable to retrieve uP version\n", kTag);
    return 0;
}

Step compare(Session &session, const Image &image, int *identical)
{
    uint8_t loader[4];
    session.loader_known = read_loader_version(session, Loader::current, loader) == 0;
    if (const Step raised = raise_speed(session); raised.result != 0)
        return raised;
    if (unlock_loader(session) != 0)
        return {DDAL_ERR_FAILURE};

    UartLink link{session.uart.get(), session.verbose, &session.progress};
    bool mismatch = false;
    session.progress.begin(DDAL_EXT_RFCARD_COMPARE, image_bytes(image.records));
    if (bsl_verify_flash_image(link, image.records, &mismatch) != 0)
        return {DDAL_ERR_FAILURE};
    *identical = mismatch ? 0 : 1;
    return {};
}

} // namespace

int ddal_ext_rfcard_verify(const char *path, int verbose, ddal_ext_rfcard_progress progress, void *context,
                           int *identical)
{
    Session session{verbose, {progress, context}};
    Image image;
    uint32_t status = BSL_STATUS_NOT_REQUIRED;
    int result = open_uart(session); // first, because another session may be using the parser
    if (result != 0)
        return result;
    // Without records the comparison would pass for equal.
    const bool loaded = load_image(path, &image, &status) == 0 && image.records;
    result = loaded ? enter_loader(session) : DDAL_ERR_FAILURE;
    if (result == 0)
        result = leave_loader(compare(session, image, identical), session);
    image_parser().discard();
    return result;
}

int ddal_ext_rfcard_version(uint8_t loader[4], uint8_t application[8], int verbose)
{
    Session session{verbose, {}};
    if (const int result = enter_loader(session); result != 0)
        return result;
    return leave_loader({read_versions(session, loader, application)}, session);
}

int ddal_ext_rfcard_restart(int verbose)
{
    Session session{verbose, {}};
    if (const int result = open_uart(session); result != 0)
        return result;
    if (bsl_reset(system_clock()) != 0)
        return log_error(DDAL_ERR_FAILURE, "BSL: ERROR: Reset failed\n");
    return wait_for_up_ready() == 0 ? 0 : DDAL_ERR_FAILURE;
}
