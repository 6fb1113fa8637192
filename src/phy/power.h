// One-character attributes of the CPLD.
#pragma once

// Return 0 or a negative errno. *byte keeps its value after a failure.
int ddal_phy_file_read(const char *path, char *byte);
int ddal_phy_file_write(const char *path, char byte);
