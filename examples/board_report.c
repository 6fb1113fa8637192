/*
 * Prints a report of the board: its manufacturer, its variant, its network addresses and the version of its FPGA.
 *
 *     board_report
 */
#include <inttypes.h>
#include <stdio.h>

#include <ddal/devicetree.h>
#include <ddal/fpga.h>
#include <ddal/unit.h>

static void print_text(const char *name, int result, const char *text)
{
    printf("  %-16s %s\n", name, result == 0 ? text : "not available");
}

static void print_identity(void)
{
    char text[128];

    print_text("Manufacturer", ddal_devicetree_get_manufacturer(0, sizeof text, text), text);
    print_text("Product code", ddal_devicetree_get_production_code(0, sizeof text, text), text);
    print_text("Serial number", ddal_devicetree_get_serial_number(0, sizeof text, text), text);
    print_text("Unit id", ddal_devicetree_get_unit_id(0, sizeof text, text), text);
    print_text("Description", ddal_devicetree_get_board_description(sizeof text, text), text);
}

static void print_radio(void)
{
    uint32_t band = 0;
    uint32_t sub_band = 0;
    uint32_t dsp_mask = 0;
    uint32_t dsp_count = 0;

    if (ddal_devicetree_get_band_class(&band) == 0 && ddal_devicetree_get_sub_band(&sub_band) == 0)
        printf("  %-16s %" PRIu32 ", sub-band %" PRIu32 "\n", "Band class", band, sub_band);
    if (ddal_devicetree_get_dsp_mask(0, &dsp_mask, &dsp_count) == 0)
        printf("  %-16s %" PRIu32 ", mask 0x%" PRIx32 "\n", "DSP cores", dsp_count, dsp_mask);
}

static void print_interfaces(void)
{
    static const char *const interfaces[] = {"eth0", "eth1", "eth3"};
    uint8_t mac[6];

    for (size_t i = 0; i < sizeof interfaces / sizeof interfaces[0]; i++) {
        if (ddal_devicetree_get_mac_addr(0, interfaces[i], mac) != 0)
            continue;
        printf("  %-16s %02x:%02x:%02x:%02x:%02x:%02x\n", interfaces[i], mac[0], mac[1], mac[2], mac[3], mac[4],
               mac[5]);
    }
}

int main(void)
{
    const int board = ddal_unit_get_board();
    uint32_t version = 0;

    if (board < 0) /* the library has logged the reason on standard error */
        return 1;
    printf("Board type %d\n", board);
    print_identity();
    print_radio();
    print_interfaces();

    if (ddal_fpga_get_version(&version) != 1) /* returns 1 on success */
        return 1;
    printf("  %-16s 0x%08" PRIx32 "\n", "FPGA version", version);
    return 0;
}
