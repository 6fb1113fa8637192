// Operations on the RF FPGA channels that other files and tests use.
#pragma once

struct ddal_rf_fpga_laa_sas;

namespace ddal::logic {

// Stores whether the main FPGA is of type C5. Returns 0 or DDAL_ERR_FAILURE.
int check_if_board_is_with_c5(int *with_c5);

} // namespace ddal::logic

// Opens a SAS channel by the name of its node.
int ddal_rf_fpga_laa_sas_open_by_filename(const char *filename, struct ddal_rf_fpga_laa_sas **out);
