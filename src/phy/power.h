// One-character attributes of the CPLD.
#pragma once

// 0 or a negative errno; *byte is unchanged after a failure.
int ddal_phy_file_read(const char *path, char *byte);
int ddal_phy_file_write(const char *path, char byte);
