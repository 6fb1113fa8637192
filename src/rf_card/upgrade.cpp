#include "rf_card/upgrade.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <syslog.h>

#include <ddal/bsl.h>
#include <ddal/fpga.h>
#include <ddal/rfup.h>

#include "core/log.h"
#include "core/unique_fd.h"
#include "rf_card/codeload.h"
#include "rf_card/command.h"
#include "rf_card/hold.h"
#include "rf_card/pins.h"
#include "rf_card/rf_card_driver.h"
#include "rf_card/uart.h"

namespace ddal::rf_card {

namespace {

constexpr const char *kUpgrade = "bsl_upgrade_up_image"; // name of the procedure in the log

constexpr uint32_t kLoaderBaud = 9600; // after every loader entry
constexpr uint32_t kTransferBaud = 57600;
constexpr uint64_t kOneSecondUs = 1'000'000;

// The password is the content of the erased vector area. Its length depends on the loader.
constexpr uint8_t kPasswordFill = DDAL_BSL_PASSWORD_FILL;
constexpr uint16_t kPasswordLength = 10;
constexpr uint16_t kUnknownLoaderPasswordLength = 32;

constexpr int kReadyRounds = 21;

} // namespace

int open_uart(Session &session)
{
    session.uart.reset(open(kUartNode, O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!session.uart)
        return DDAL_ERR_FAILURE;
    const int held = hold_uart(session.uart.get());
    session.hold.reset(fcntl(session.uart.get(), F_DUPFD_CLOEXEC, 3));
    if (held == 0 && session.hold)
        return 0;
    return held == -EBUSY ? held : DDAL_ERR_FAILURE;
}

Step set_uart_speed(Session &session, uint32_t baud)
{
    const int fd = bsl_set_uart_speed(session.uart.release(), baud); // closes the descriptor on failure
    if (fd < 0)
        return {fd, true};
    session.uart.reset(fd);
    return {};
}

int enter_loader(Session &session)
{
    session.progress.begin(DDAL_EXT_RFCARD_ENTER);
    if (ddal_fpga_masked_write(kRfPowerRegister, kRfPowerOn, kRfPowerOn) != 0)
        return log_error_as(kUpgrade, DDAL_ERR_FAILURE, "Failed to turn on the RF POWER.n\n");

    __ddal_log(LOG_DEBUG, "Initializing BSL... ");
    const int opened = session.uart ? 0 : open_uart(session);
    if (opened != 0)
        return opened;
    if (set_uart_speed(session, kLoaderBaud).result != 0)
        return DDAL_ERR_FAILURE;
    __ddal_log(LOG_DEBUG, "UART opened.\n");

    __ddal_log(LOG_DEBUG, "Putting uP in BSL mode... ");
    UartLink link{session.uart.get(), session.verbose};
    if (bsl_entry(link) != 0) {
        log_line_as(LOG_ERR, kUpgrade, "BSL: ERROR: Unable to gain BSL entry\n");
        return DDAL_ERR_FAILURE;
    }
    return 0;
}

uint32_t read_loader_version(const Session &session, Loader loader, uint8_t version[4])
{
    std::array<uint8_t, kLoaderVersionMax> bytes{};
    UartLink link{session.uart.get(), session.verbose};
    const uint32_t result = bsl_tx_bsl_version(link, bytes.data());
    if (result == 0) {
        const bool current = loader == Loader::current;
        if (current) // kept: ends the log line of the loader entry; the entry after a rewrite logs no such line
            __ddal_log(LOG_DEBUG, "done\n");
        __ddal_log(LOG_DEBUG, "%sBSL version: %02x.%02x.%02x.%02x\n", current ? "Current " : "NEW ", bytes[0], bytes[1],
                   bytes[2], bytes[3]);
        memcpy(version, bytes.data(), 4);
    }
    return result;
}

Step raise_speed(Session &session)
{
    UartLink link{session.uart.get(), session.verbose};
    if (bsl_change_baud(link, kTransferBaud) != 0)
        return {log_error_as(kUpgrade, DDAL_ERR_FAILURE, "BSL: ERROR: Unable to codeload.\n")};
    return set_uart_speed(session, kTransferBaud);
}

int unlock_loader(Session &session)
{
    std::array<uint8_t, kUnknownLoaderPasswordLength> password;
    password.fill(kPasswordFill);
    const uint16_t length = session.loader_known ? kPasswordLength : kUnknownLoaderPasswordLength;

    UartLink link{session.uart.get(), session.verbose};
    if (bsl_rx_password(link, password.data(), length) == 0)
        return 0;
    // A wrong password has erased the flash, so the same bytes are now correct.
    system_clock().sleep_us(kOneSecondUs);
    if (bsl_rx_password(link, password.data(), length) == 0)
        return 0;
    return log_error_as(kUpgrade, DDAL_ERR_FAILURE, "BSL: ERROR: Unable to codeload.\n");
}

int wait_for_up_ready()
{
    uint8_t status[2] = {};
    for (int round = 0; round < kReadyRounds; ++round) {
        system_clock().sleep_us(kOneSecondUs);
        if (ddal_rfup_msg(kStatusQuery, 0, nullptr, sizeof status, status) != 0)
            return log_error(-1, "BSL: ERROR: Unable to determine uP status\n");
        __ddal_log(LOG_INFO, "BSL: INFO: uP firmware status: 0x%02x, 0x%02x", status[0], status[1]);
        if (status[1] == kReady)
            return 0;
    }
    return log_error(-1, "BSL: ERROR: uP firmware did not indicate READY (status = 0x%02x)\n", status[1]);
}

int write_bsl(Session &session)
{
    session.progress.begin(DDAL_EXT_RFCARD_LOADER);
    __ddal_log(LOG_DEBUG, "Putting uP in app mode... ");
    if (bsl_reset(system_clock()) != 0) {
        log_line(LOG_ERR, "BSL: ERROR: Reset failed\n");
        return log_error(DDAL_ERR_FAILURE, "BSL: ERROR: Unable to communicate with uP firmware\n");
    }
    if (wait_for_up_ready() != 0)
        return log_error(DDAL_ERR_FAILURE, "BSL: ERROR: Unable to communicate with uP firmware\n");
    __ddal_log(LOG_DEBUG, "done\n");

    if (ddal_rfup_msg(kRewriteLoader, sizeof kRewriteArguments, kRewriteArguments, 0, nullptr) != 0)
        return log_error(DDAL_ERR_FAILURE, "BSL: ERROR: Unable to send BSL program message\n");
    system_clock().sleep_us(kOneSecondUs);
    if (wait_for_up_ready() != 0)
        return log_error(DDAL_ERR_FAILURE, "BSL: ERROR: uP did not return to READY after writing BSL image.\n");

    UartLink link{session.uart.get(), session.verbose};
    if (bsl_entry(link) != 0)
        return log_error(DDAL_ERR_FAILURE, "BSL: ERROR: Unable gain BSL entry\n");
    uint8_t version[4];
    if (read_loader_version(session, Loader::rewritten, version) != 0)
        return log_error(DDAL_ERR_FAILURE, "BSL: ERROR: Unable to read BSL version\n");
    return 0;
}

namespace {

int bsl_app_mode(int result, Session &session)
{
    session.progress.begin(DDAL_EXT_RFCARD_RESTART);
    if (bsl_reset(system_clock()) != 0)
        log_line(LOG_ERR, "BSL: ERROR: Reset failed\n");
    else if (wait_for_up_ready() == 0)
        __ddal_log(LOG_DEBUG, "done\n");
    return result;
}

} // namespace

int leave_loader(Step so_far, Session &session)
{
    return so_far.loses_card ? so_far.result : bsl_app_mode(so_far.result, session);
}

namespace {

Step prepare_codeload(Session &session)
{
    const Step raised = raise_speed(session);
    return raised.result != 0 ? raised : Step{unlock_loader(session)};
}

Step codeload_and_rewrite(Session &session, const char *path, int upgrade_all, Verdict *verdict)
{
    UartLink link{session.uart.get(), session.verbose, &session.progress};
    if (bsl_codeload(link, path, verdict, upgrade_all) != 0)
        return {DDAL_ERR_FAILURE};
    const Step lowered = set_uart_speed(session, kLoaderBaud);
    return lowered.result != 0 || upgrade_all == 0 ? lowered : Step{write_bsl(session)};
}

int upgrade(Session &session, const char *path, int upgrade_all, Verdict *verdict)
{
    if (const int result = enter_loader(session); result != 0)
        return result;

    uint8_t version[4];
    session.loader_known = read_loader_version(session, Loader::current, version) == 0;
    if (!session.loader_known) {
        log_line_as(LOG_ERR, kUpgrade, "BSL: ERROR: Unable to read BSL version\n");
        log_line_as(LOG_ERR, kUpgrade, "BSL: ERROR: force upgrade all: up image and BSL\n");
        upgrade_all = 1;
    }

    const Step prepared = prepare_codeload(session);
    if (prepared.result != 0)
        return leave_loader(prepared, session);
    const Step loaded = codeload_and_rewrite(session, path, upgrade_all, verdict);
    if (!loaded.loses_card)
        __ddal_log(LOG_DEBUG, "Putting uP in app mode... ");
    return leave_loader(loaded, session);
}

} // namespace

} // namespace ddal::rf_card

int bsl_upgrade_up_image(const char *path, int upgrade_all, int verbose)
{
    return ddal_ext_rfcard_upgrade(path, upgrade_all, verbose, nullptr, nullptr, nullptr);
}

int ddal_ext_rfcard_upgrade(const char *path, int upgrade_all, int verbose, ddal_ext_rfcard_progress progress,
                            void *context, uint32_t *status)
{
    ddal::rf_card::Verdict verdict;
    ddal::rf_card::Session session{verbose, {progress, context}};
    const int result = ddal::rf_card::upgrade(session, path, upgrade_all, &verdict);
    if (status && result == 0 && verdict.image_bytes == 0)
        *status = BSL_STATUS_NOT_PARSED;
    else if (status)
        *status = verdict.status;
    return result;
}
