"""What the headers do not say in a form that a program reads. Every row names its operations by a regular expression and gives
the reason; a row that fits no operation fails the build."""

# Operations that Python cannot express.
LEFT_OUT = {
    "bsl_generate_pattern_record": "fills a C record of the caller with a pointer to the caller's bytes",
    "sal_config_init_defaults": "the switch SDK calls it while it starts",
}

# Operations of the hand-written modules below ddal/: the name of the function there is the usual one.
BY_HAND = {
    "ddal_ext_set_log_handler": "the handler lives as long as a with statement",
    "ddal_common_read_file": "the result is both the length of the bytes and that of the whole file",
}

# How to read a result that is not "0 or more is success".
#   value    a number of its own meaning; every value is good
#   count    a number on success, negative after a failure
#   nonzero  0 is success, every other value a failure
#   zero     0 means yes, every other value means no
#   flag     1 means yes, 0 means no, negative is a failure
#   address  a pointer, 0 included; pointer: a pointer, NULL after a failure; nothing: always NULL
#   text     a constant text
RESULTS = [
    (r"ddal_unit_get_board(_subtype)?", "count", "the board type"),
    (r"_ddal_common_shell_command.*|ddal_common_read_cmd_output", "count", "the exit status of the program"),
    (r"ddal_bcm_[cs]vlans_get", "count", "the number of VLANs"),
    (r"ddal_rf_fpga_(read|write)(_fd)?|ddal_rf_fpga_masked_write_fd", "count", "the words or bytes moved"),
    (r"ddal_rf_fpga_slow_meas_report_wait", "count", "the bytes of the second block"),
    (r"ddal_phy_event_register_.*|bsl_set_uart_speed", "count", "a descriptor"),
    (r"bsl_parse_file", "count", "1 for an image without a version block"),
    (r"bsl_crc_(init|update|get_.*|calc)|bsl_get_(up_version_addr|crc_max_length)", "value", "a checksum, an address, a length"),
    (r"Osal_saGet(ProcId|SysEndianMode)|ddal_product_family_get", "value", "a constant"),
    (r"bsl_(entry|reset|[tr]x_.*|crc_check|load_pc|erase.*|toggle_info|change_baud|codeload)|get_bsl_resp", "nonzero",
     "positive codes of the loader link"),
    (r"ddal_bcm_(ifp_.*(add|remove|all|get|groups|entries|entry)|svlan_.*|vlan_translation_.*)", "nonzero",
     "a product's replacement may return any value"),
    (r"bsl_get_file_version|Osal_(startup|shutdown)|ddal_atboot_run", "nonzero", "1, or the value of an action"),
    (r"ddal_bcm_ifp_.*_exists", "flag", "1 or 0"),
    (r"ddal_sfp_is_compliance_code_set", "flag", "1 or 0"),
    (r"ddal_is_wifi_supported|is_BH3_type_multiport_switch", "zero", "-1 is a plain no"),
    (r"ddal_map_soc|ddal_mem_map_addr|Osal_.*Malloc", "pointer", "NULL after a failure"),
    (r"Osal_.*CsEnter", "nothing", "what Enter returns has no meaning"),
    (r"Osal_qmss(PhyToVirt|VirtToPhy|Convert.*|MemBarrier)|Osal_saGetSCPhyAddr", "address", "NULL gives NULL"),
    (r"ddal_ext_version", "text", "constant"),
]

# (operation, parameter): a fixed argument that callers do not give, with the reason.
FIXED = [
    (r".*", "ignored", "0", "has no meaning on this board"),
    (r"Osal_.*CsEnter", "key", "_NULL", "what Enter stores has no meaning to Exit"),
    (r"Osal_.*CsExit", "key|handle", "0|_NULL", "ignored"),
]

# (operation, parameter, default): arguments that are given by name only, or not at all.
DEFAULTS = [
    (r"ddal_eth_switch_.*", "sw", "2"),
    (r"bsl_.*|get_bsl_resp|ddal_ext_rfcard_.*", "verbose", "0"),
    (r"bsl_upgrade_up_image|ddal_ext_rfcard_upgrade", "upgrade_all", "0"),
    (r"bsl_codeload", "force", "0"),
    (r"ddal_dfe_.*", "chip", "0"),
    (r"ddal_jitter_cleaner_.*", "device", "0"),
    (r"ddal_sfn_wait_(next|btsrtc.*)", "arg", "0"),
    (r"ddal_phy_copper_event_open", "event", "0"),
    (r"_ddal_common_shell_command.*_fp", "flags", "0"),
    (r"ddal_kvb_common_read_string_to_u64", "base", "0"),
    (r"ddal_rf_fpga_(read|write|masked_write|bit_.*)", "devid", "0"),
    (r"ddal_rp3_validate_aif", "write_log", "0"),
]

# (operation, output): bytes of room for an output whose length its operation does not take.
ROOMS = [
    (r"ddal_ffs_get_fstype", "type", 17),
    (r"ddal_boot_get_(flashed_)?uboot_version", "buf", 128),
    (r"ddal_boot_get_image_name", "buf", 7),
    (r"ddal_boot_get_uboot_name", "buf", 11),
    (r"bsl_tx_bsl_version", "buffer", 256),
    (r"bsl_tx_app_ver", "buffer", 8),
    (r"bsl_rx_pkt", "packet", 65535),
]

# In and out: what the caller gives is replaced by what the operation found.
IN_AND_OUT = [(r"ddal_sfn_wait_for", "sfn")]

# A text that says more about a failure.
DETAILS = [(r"ddal_auth_set_user_password", "error_msg"), (r"ddal_rp3_validate_aif", "text")]

# The name of a module, where it is not the whole of what the operations of its header begin with.
PREFIXES = {"bcm_open": "bcm_", "clock": "(clk|clock)_", "osal": "Osal_", "osal_ext": "Osal_", "phy": "phy_", "rp3": "rp3_"}
