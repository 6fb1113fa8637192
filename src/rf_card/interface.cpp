// The loader link for callers that hold a descriptor.
#include <ddal/bsl.h>

#include "rf_card/command.h"
#include "rf_card/pins.h"
#include "rf_card/uart.h"

using ddal::rf_card::UartLink;

uint32_t bsl_entry(int fd, int verbose)
{
    UartLink link{fd, verbose};
    return ddal::rf_card::bsl_entry(link);
}

uint32_t bsl_reset(int, int)
{
    return ddal::rf_card::bsl_reset(ddal::rf_card::system_clock());
}

uint32_t bsl_tx_pkt(int fd, const struct bsl_packet *packet, int verbose)
{
    UartLink link{fd, verbose};
    return ddal::rf_card::bsl_tx_pkt(link, *packet);
}

uint32_t bsl_rx_pkt(int fd, struct bsl_packet *packet, int verbose)
{
    UartLink link{fd, verbose};
    return ddal::rf_card::bsl_rx_pkt(link, *packet);
}

uint32_t get_bsl_resp(int fd, int verbose)
{
    UartLink link{fd, verbose};
    return ddal::rf_card::get_bsl_resp(link);
}

uint32_t bsl_rx_data_blk(int fd, uint32_t address, const struct bsl_packet *block, int verbose)
{
    UartLink link{fd, verbose};
    return ddal::rf_card::bsl_rx_data_blk(link, address, block->data, block->length);
}

uint32_t bsl_tx_data_blk(int fd, uint32_t address, uint32_t length, uint8_t *destination, int verbose)
{
    UartLink link{fd, verbose};
    return ddal::rf_card::bsl_tx_data_blk(link, address, length, destination);
}

uint32_t bsl_crc_check(int fd, uint32_t address, uint16_t length, uint16_t *crc, int verbose)
{
    UartLink link{fd, verbose};
    return ddal::rf_card::bsl_crc_check(link, address, length, crc);
}

uint32_t bsl_load_pc(int fd, uint32_t address, int verbose)
{
    UartLink link{fd, verbose};
    return ddal::rf_card::bsl_load_pc(link, address);
}

uint32_t bsl_rx_password(int fd, const uint8_t *bytes, uint16_t length, int verbose)
{
    UartLink link{fd, verbose};
    return ddal::rf_card::bsl_rx_password(link, bytes, length);
}

uint32_t bsl_erase_segment(int fd, uint32_t address, int verbose)
{
    UartLink link{fd, verbose};
    return ddal::rf_card::bsl_erase_segment(link, address);
}

uint32_t bsl_toggle_info(int fd, int verbose)
{
    UartLink link{fd, verbose};
    return ddal::rf_card::bsl_toggle_info(link);
}

uint32_t bsl_tx_bsl_version(int fd, uint8_t *buffer, int verbose)
{
    UartLink link{fd, verbose};
    return ddal::rf_card::bsl_tx_bsl_version(link, buffer);
}

uint32_t bsl_change_baud(int fd, uint32_t baud, int verbose)
{
    UartLink link{fd, verbose};
    return ddal::rf_card::bsl_change_baud(link, baud);
}

uint32_t bsl_rx_data(int fd, uint32_t address, const struct bsl_packet *block, int verbose)
{
    UartLink link{fd, verbose};
    return ddal::rf_card::bsl_rx_data(link, address, block->data, block->length);
}

uint32_t bsl_tx_data(int fd, uint32_t address, uint32_t length, uint8_t *destination, int verbose)
{
    UartLink link{fd, verbose};
    return ddal::rf_card::bsl_tx_data(link, address, length, destination);
}

uint32_t bsl_erase(int fd, uint32_t start, uint32_t length, uint32_t *first_segment, uint32_t *last_address,
                   int verbose)
{
    UartLink link{fd, verbose};
    return ddal::rf_card::bsl_erase(link, start, length, first_segment, last_address);
}

uint32_t bsl_tx_app_ver(int fd, uint8_t *buffer, int verbose)
{
    UartLink link{fd, verbose};
    return ddal::rf_card::bsl_tx_app_ver(link, buffer);
}
