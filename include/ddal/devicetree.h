/*
 * Identity of the board, as manufacturing wrote it into the device tree.
 *
 * Every getter reads one property under /proc/device-tree (the MAC addresses of network ports under
 * /sys/class/net/eth1/device/of_node), keeps no state and does not block. Reading needs read permission on those files,
 * the setters need write permission on theirs. Any number of calls may run in parallel from any thread.
 *
 * Common to all: -ENOENT where the property is missing, otherwise the negative errno of open or read. The argument
 * `ignored` has no meaning on this board; pass 0.
 */
#ifndef DDAL_DEVICETREE_H
#define DDAL_DEVICETREE_H

#include <stddef.h>
#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Reads an identity text of the board.
 *
 * size: size of buf in bytes, at least 1.
 * buf:  receives at most size - 1 characters and a terminating NUL; a longer text is cut and still reported as success.
 *       Unspecified after a failure.
 *
 * Return 0 on success. -EINVAL: size is 0.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_devicetree_get_production_code(uint32_t ignored, size_t size, char *buf);
DDAL_API int ddal_devicetree_get_serial_number(uint32_t ignored, size_t size, char *buf);
DDAL_API int ddal_devicetree_get_unit_id(uint32_t ignored, size_t size, char *buf);
/* The date of the board's production test. */
DDAL_API int ddal_devicetree_get_test_time_stamp(uint32_t ignored, size_t size, char *buf);
DDAL_API int ddal_devicetree_get_manufacturer(uint32_t ignored, size_t size, char *buf);
/* The tree's "compatible" property: its first string. */
DDAL_API int ddal_devicetree_get_hwcompat(uint32_t ignored, size_t size, char *buf);

/*
 * Reads a text of the module that the board belongs to, as the operations above do.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_devicetree_get_module_production_code(size_t size, char *buf);
DDAL_API int ddal_devicetree_get_module_serial_number(size_t size, char *buf);
DDAL_API int ddal_devicetree_get_module_unit_id(size_t size, char *buf);
DDAL_API int ddal_devicetree_get_module_test_time_stamp(size_t size, char *buf);
DDAL_API int ddal_devicetree_get_board_description(size_t size, char *buf);
DDAL_API int ddal_devicetree_get_osc_calibration_date(size_t size, char *buf);
DDAL_API int ddal_devicetree_get_die_id(size_t size, char *buf);
DDAL_API int ddal_devicetree_get_die_id_quality(size_t size, char *buf);

/*
 * Reads a text and reports how much of it did not fit.
 *
 * size: in: size of buf in bytes, or 0 to ask for the size needed. Out: the number of bytes that did not fit (0: all
 *       fitted), or the size needed when it was 0. Unchanged after a failure.
 * buf:  receives at most *size - 1 characters and a terminating NUL; untouched when *size is 0.
 *
 * Return 0 on success, never the length.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_devicetree_sysinfo_get_fpga_type(size_t *size, char *buf);
DDAL_API int ddal_devicetree_sysinfo_get_rfic_type(size_t *size, char *buf);

/*
 * Reads a number.
 *
 * value: receives the cell, converted as described. After a failure it holds what the reader left there: the old value,
 *        or raw bytes of a property of the wrong length.
 *
 * Return 0 on success. -ENODATA: the property is not exactly one cell of 4 bytes.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_devicetree_get_hw_sw_id(uint32_t ignored, uint32_t *value);
/* Number of processor cores. */
DDAL_API int ddal_devicetree_get_numcores(uint32_t ignored, uint32_t *value);
DDAL_API int ddal_devicetree_get_isti(uint32_t ignored, uint32_t *value);
DDAL_API int ddal_devicetree_get_xcvr_hw_capability(uint32_t *value);
DDAL_API int ddal_devicetree_get_hal_major(uint32_t *value);
DDAL_API int ddal_devicetree_get_hal_intermediate(uint32_t *value);
DDAL_API int ddal_devicetree_get_hal_minor(uint32_t *value);
DDAL_API int ddal_devicetree_get_osc_calibration_data(uint32_t *value);
DDAL_API int ddal_devicetree_get_osc_oscillator_type(uint32_t *value);

/*
 * Reads the radio band class: bits 8 to 15 of a cell of 256 or more, else the whole cell.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_devicetree_get_band_class(uint32_t *value);

/*
 * Reads the radio sub-band: bits 0 to 7 of a band-class cell of 256 or more, else the separate sub-band cell.
 *
 * @threads safe
 * @blocks one access; two for the separate cell
 */
DDAL_API int ddal_devicetree_get_sub_band(uint32_t *value);

/*
 * Reads how the backhaul ports, power-sourcing equipment and Bluetooth are fitted: the cell shifted left by 12, the
 * cell of backhaul port 3 by 4. On board type 5 the value for backhaul port 1 is 0x2000, without a read.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_devicetree_get_user_defined_a_backhaul_1_type(uint32_t *value);
DDAL_API int ddal_devicetree_get_user_defined_a_backhaul_2_type(uint32_t *value);
DDAL_API int ddal_devicetree_get_user_defined_a_backhaul_3_type(uint32_t *value);
DDAL_API int ddal_devicetree_get_user_defined_a_pse_status(uint32_t *value);
DDAL_API int ddal_devicetree_get_user_defined_a_pse_config(uint32_t *value);
DDAL_API int ddal_devicetree_get_user_defined_a_bt_status(uint32_t *value);
DDAL_API int ddal_devicetree_get_user_defined_a_bt_config(uint32_t *value);

/*
 * Reads how Wi-Fi is fitted: the unchanged cell. Every failure gives DDAL_ERR_WIFI_SUPPORT instead of the reader's
 * code.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_devicetree_get_user_defined_a_wifi_support(uint32_t *value);

/*
 * Reads which DSP cores the board has.
 *
 * mask:  bit i is set if core i (0 to 31) is fitted; unchanged after a failure.
 * count: receives the number of entries, which may exceed 32; may be NULL; unchanged after a failure.
 *
 * Returns 0 on success. -ENODATA: the number of entries and their list do not agree. -ENOMEM.
 *
 * @threads safe
 * @blocks two accesses
 */
DDAL_API int ddal_devicetree_get_dsp_mask(uint32_t ignored, uint32_t *mask, uint32_t *count);

/*
 * Writes the cell that ddal_devicetree_get_isti reads. Lost with the next start unless made permanent. Returns 0.
 *
 * @threads safe: a reader may meet the cell while it is empty (-ENODATA)
 * @blocks one access
 */
DDAL_API int ddal_devicetree_set_isti(uint32_t value);

/*
 * Reads or writes the first reset-loop counter, an item of the system-information store.
 *
 * value: receives the low 32 bits of the stored number; unchanged after a failure.
 *
 * Return 0 on success, DDAL_ERR_FAILURE on every failure.
 *
 * @threads safe
 * @blocks until a writer of the store is done
 */
DDAL_API int ddal_devicetree_get_reset_loop_counter_1(uint32_t *value);
DDAL_API int ddal_devicetree_set_reset_loop_counter_1(uint32_t value);

/*
 * Makes a changed device tree permanent in flash. Runs a program and blocks until it ends.
 *
 * Returns the result of ddal_sysinfo_update_devicetree_to_flash unchanged.
 *
 * @threads one caller at a time: in the whole unit
 * @blocks a program: it writes flash
 */
DDAL_API int ddal_devicetree_write_to_flash(void);

/*
 * Reads the MAC address of a network interface.
 *
 * ifname: "eth0", "eth1", "eth3", on board type 5 "eth2" as well, or "virt" followed by the name of an entry of the
 *         pool of virtual addresses ("virt0").
 * mac:    receives the 6 bytes in transmission order; untouched after a failure.
 *
 * Returns 0 on success. -ENODEV: this board type does not have the interface.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_devicetree_get_mac_addr(uint32_t ignored, const char *ifname, uint8_t mac[6]);

DDAL_END_DECLS

#endif
