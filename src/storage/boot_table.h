// Files, devices and programs of the boot-loader control.
#pragma once

namespace ddal::storage {

// Settings that the boot loader passes on. Each is one cell, except the version, which is text.
inline constexpr const char *kLinuxActiveCell = "/proc/device-tree/uboot/linux_active_partition";
inline constexpr const char *kNetbootCell = "/proc/device-tree/uboot/netboot";
inline constexpr const char *kUartCell = "/proc/device-tree/uboot/uart";
inline constexpr const char *kLmtCell = "/proc/device-tree/uboot/lmt";
inline constexpr const char *kIsolatedCpusCell = "/proc/device-tree/uboot/isolcpus";
inline constexpr const char *kUbootVersion = "/proc/device-tree/uboot/version";

// Results of the power-on tests, as text.
inline constexpr const char *kUbootId = "/proc/device-tree/post/uboot_id";
inline constexpr const char *kUbootErrorCode = "/proc/device-tree/post/uboot_err_code";
inline constexpr const char *kLinuxErrorCode = "/proc/device-tree/post/boot_error";

inline constexpr const char *kResetLoopCount = "/sys/class/cpld-usr/cpld-usr/scr1";
inline constexpr const char *kNextReset = "/sys/class/cpld-usr/cpld-usr/next_reset";

inline constexpr const char *kPrimaryBootHeader = "/dev/flash/by-name/p_boot_header";
inline constexpr const char *kSecondaryBootHeader = "/dev/flash/by-name/s_boot_header";

inline constexpr const char *kUpdateUboot = "/bin/update_u-boot.sh";
inline constexpr const char *kSwapUboot = "/bin/swap_uboot_partition.sh";
inline constexpr const char *kUbootHeader = "/usr/bin/ubootheader";

} // namespace ddal::storage
