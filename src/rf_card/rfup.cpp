// Messages to the application on the RF card's microcontroller.
#include <ddal/rfup.h>

#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>

#include "core/log.h"
#include "core/unique_fd.h"
#include "rf_card/rf_card_driver.h"

using namespace ddal::rf_card;
using ddal::core::UniqueFd;

namespace {

constexpr int kMessageMax = 252;

} // namespace

int ddal_rfup_msg(uint8_t opcode, uint8_t tx_len, const void *tx, uint8_t rx_len, void *rx)
{
    if ((tx_len != 0 && !tx) || (rx_len != 0 && !rx))
        return log_error(DDAL_ERR_FAILURE, "buffer pointer is NULL, but length is not zero\n");
    if (tx_len + rx_len > kMessageMax)
        return log_error(DDAL_ERR_FAILURE, "Overall Message length too large\n");

    const UniqueFd fd{open(kRfupNode, O_RDWR | O_CLOEXEC)};
    if (!fd)
        return log_error(DDAL_ERR_FAILURE, "can't open device /dev/rfup-usr: %m\n");

    RfupRequest request{};
    request.opcode = opcode;
    request.tx_len = tx_len;
    request.rx_len = rx_len;
    if (tx_len != 0)
        memcpy(request.tx, tx, tx_len);
    int result = 0;
    if (ioctl(fd.get(), kRfupMessage, &request) < 0)
        result = log_error(DDAL_ERR_FAILURE, "can't perform message operation: %m\n");
    if (rx_len != 0)
        memcpy(rx, request.rx, rx_len); // kept: even after a failure
    return result;
}
