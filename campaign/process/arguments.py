"""Plausible arguments of every exported operation, as C++ expressions.

An argument is looked up in the rows of OPERATIONS that fit the operation, the last one first, and then in NAMES. What is
found nowhere, and is not an output, fails the build. A row may also say, besides arguments:

    prepare  statements that put files on the board, once, before any call
    setup    statements before the call, e.g. what opens a handle; CALL(name) is an operation of the library
    finish   statements after a call that succeeded, which give back what it handed out
    kind     how to read the result, where its type does not tell (Kind in calls.h)
    refuses  reason why the call must fail on this board: the body has nothing to do or to find here
    always   statements after the call, whatever came of it
    between  statements between two calls of one process: they supply what the first call has used up
    apart    why success does not speak of the output: its failure is only logged
    in_child the line of a child whose parent has called before, where the child is refused
"""

NAMES = {
    "ignored": "0", "sw": "2", "port": "18", "port1": "18", "port2": "20", "dst_port": "20", "phy_dev": "0",
    "state": "1", "mode": "1", "speed": "1000", "enable": "1", "on": "1", "reg": "4", "page": "0", "value": "1",
    "code": "2", "pause": "1", "asym_pause": "0", "limit": "1000", "burst": "20", "svlan": "7", "cvlan": "100",
    "vlan": "100", "ethertype": "0x88a8", "dscp": "46", "pcp": "6", "queue": "4", "config": "1", "static_entries": "1",
    "quanta": "kQuanta", "mac": "kMac", "address": "0x140104", "mask": "0xff", "count": "1", "range": "1", "bit": "3",
    "devid": "0", "period_ms": "100", "index": "0", "chip": "0", "length": "4", "offset": "200", "len": "4",
    "sfpId": "DDAL_SFP_1", "memory": "DDAL_SFP_MEMORY_DIAGNOSTICS", "diag": "DDAL_SFP_DIAG_TEMPERATURE",
    "ctrl": "DDAL_SFP_CTRL_TX_DISABLE", "status": "DDAL_SFP_STATUS_PRESENCE", "codes": "kBytes", "buf": "kBytes",
    "buffer": "kBytes", "max": "64", "led_id": "DDAL_LED_STATUS", "colour": "DDAL_LED_SOLID_GREEN", "persist": "1",
    "id": "DDAL_FFS_1", "type": "DDAL_FFS_TYPE_EXT4", "flags": "1", "logical": "DDAL_FFS_OWN", "partition": "54",
    "user": '"serviceuser"', "password": '"another-Password-7"', "error_msg_len": "256", "delay": "3000000",
    "fd": "fd", "verbose": "0", "baud": "9600", "path": '"/flash/config/campaign"', "file": '"/u-boot.img"',
    "upgrade_all": "0", "force": "1", "context": "nullptr", "progress": "nullptr", "data": "kBytes", "byte": "0x31",
    "crc": "0x1234", "prefix": '"version "', "start": "0x9000", "bytes": "kPassword", "file_size": "file_size",
    "size": "256", "n": "4", "vals": "kWords", "val": "kWords", "version": "version", "list": "list", "tx": "nullptr", "base": "0", "str": '"text"', "in": "in", "out": "out", "argv": "argv",
    "cmdline": '"echo line; exit 0"', "ifname": '"eth1"', "device": "0", "target": "DDAL_RESET_UNIT",
    "action": "DDAL_RESET_ACTION_RESET", "physical": "0x1000010", "key": "0", "handle": "nullptr", "block": "block",
    "format": '"queue %d"', "more": "7", "addr": "addr", "desc": "desc", "queue_id": "1", "opcode": "0", "tx_len": "0",
    "rx_len": "2", "event": "0", "write_log": "1", "text_len": "2048", "category": "0", "key2": "0",
    "name": '"campaign"', "period": "60", "priority": "6", "buflen": "128", "clockid": "CLOCK_MONOTONIC",
    "timeout": "nullptr", "mem_type": "DDAL_CMA_DDR", "dma_addr": "0xa0000000", "virt_addr": "virt", "arg": "0",
    "a": "1", "b": "2", "setting": "nullptr", "a0": "1", "a1": "2", "a2": "3", "a3": "4", "a4": "5", "a5": "6",
    "sfn": "0", "banner_text": '"Authorised use only, again.\\n"', "clear": "kBytes", "set": "kBytes",
}

# Formatted operations take one more argument.
VARIADIC = "more"

OPEN_LOADER = """int fd = open("/dev/ttyFPGA3", O_RDWR | O_NOCTTY | O_CLOEXEC);
    CALL(ddal_fpga_write)(0x180008, 1);
    fd = CALL(bsl_set_uart_speed)(fd, 9600);
    CALL(bsl_entry)(fd, 0);"""
UNLOCKED = OPEN_LOADER + "\n    CALL(bsl_rx_password)(fd, kPassword, 32, 0);"
CLOSE_LINE = "close(fd);"
LAA_RECORD = 'control("laa record 71 2 3 4 5 6 7 8 9 10 11 12 913");'
POWER_RECORD = 'control("power-meter record 1 2 3 4 5 6 7 8 9");'
COPPER = {"port": "14"}


def undoes(operations, before, arguments):
    """Returns the rows of operations that read or undo the setting of another operation."""
    call = f"CALL({before})({arguments});"
    return [(operations, {"setup": call, "between": call})]


OPERATIONS = [
    # --- core ---
    (r"ddal_strerror", {"code": "-1001"}),
    (r"ddal_ext_set_log_handler", {"handler": "nullptr", "user": "nullptr"}),
    (r"ddal_common_write_.*", {"prepare": 'put("/flash/config/campaign", "before");'}),
    (r"ddal_common_read_file", {"path": '"/etc/version"', "n": "256"}),
    (r"ddal_(kvb_)?common_read_string.*", {"path": '"/etc/version"'}),
    (r"ddal_kvb_common_read_string_to_u64", {"path": '"/sys/class/fpga_rf_pwr/fpga_rf_pwr/loop_cnt"'}),
    (r"ddal_common_read_u32val_array", {"n": "1"}),
    (r"ddal_common_read_u32val.*", {"path": '"/proc/device-tree/dsp/dsp-mask-count"'}),
    # The programs act in one step: scarce descriptors and an end of the caller are theirs, too.
    (r"_ddal_common_shell_command.*|ddal_common_read_cmd_output", {"path": '"/bin/sh"', "flags": "1", "kind": "kCode"}),
    (r"_ddal_common_shell_command(_read)?", {
        "setup": """char word[] = "sh", option[] = "-c", line[] = "echo done && ln -s ran /flash/config/campaign";
    char *argv[] = {word, option, line, nullptr};"""}),
    (r"_ddal_common_shell_command_(read_)?write_fp", {
        "setup": """char word[] = "sh", option[] = "-c";
    char line[] = "read text && echo done && ln -s \\"$text\\" /flash/config/campaign";
    char *argv[] = {word, option, line, nullptr};
    const Stream in = stream("input");"""}),
    (r"_ddal_common_shell_command_read_write_fp", {"setup": "const Stream out = stream(nullptr);"}),
    (r"ddal_sysinfo_.*", {"category": "13", "key": "18"}),
    (r"ddal_sysinfo_get_uint", {"prepare": 'put("/flash/config/sysinfo", "13.18.0 = 7\\n");'}),
    (r"ddal_kvb_rpram_get_isti", {"setup": "CALL(ddal_kvb_rpram_set_isti)(5);"}),
    (r"ddal_trbl_delete", {"path": '"/var/log/campaign"', "prepare": 'put("/var/log/campaign", "log");'}),
    (r"ddal_unmap_soc", {"setup": "CALL(ddal_map_soc)();"}),
    (r"ddal_map_soc", {"finish": "CALL(ddal_unmap_soc)();"}),
    (r"ddal_mem_map_addr", {"size": "8", "finish": "CALL(ddal_mem_unmap_addr)(made, 8);"}),
    (r"ddal_mem_unmap_addr", {"addr": "addr", "size": "8", "setup": "void *addr = CALL(ddal_mem_map_addr)(0x1000010, 8);"}),
    (r"ddal_is_wifi_supported", {"prepare": 'put("/flash/config/sysinfo", "0.13.20 = 1\\n");'}),
    # --- accounts ---
    (r"ddal_auth_set_restricted.*", {"state": "DDAL_ROOT_ACCESS_RESTRICTED",
        "prepare": 'put("/user/toor4qrx/.ssh/authorized_keys", kPublicKey);'}),
    (r"ddal_sshd_set_parameter", {"name": '"ClientAliveInterval"', "value": '"300"', "flags": "DDAL_SSHD_PERSIST",
        "prepare": 'put("/ffs/run/etc/ssh/p_sshd_config", "ClientAliveInterval 1\\n");'}),
    (r"ddal_auth_set_password_history_len", {"len": "5"}),
    # --- switch ---
    (r"ddal_phy_copper_.*_pause_frames", {"phy_dev": "1"}),
    (r"ddal_bcm_(copper_.*|.*_ext_phy_register|.*rclk.*|.*mdix)", COPPER),
    (r"ddal_bcm_.*master_slave.*", {"port": "20"}),
    (r"ddal_bcm_write_ext_phy_register", {"value": "0x0de1"}),
    (r"ddal_ext_switch_rules", {"size": "&size", "setup": "uint32_t size = 256;"}),
    (r"ddal_bcm_ifp_install_.*", {"setup": "uint32_t attached = 0;\n    CALL(ddal_bcm_loopback_get)(18, &attached);"}),
    *undoes("ddal_bcm_ifp_redirect_frame_action_(remove|get)", "ddal_bcm_ifp_redirect_frame_action_add", "18, 20, 0"),
    *undoes("ddal_bcm_ifp_dstmac_.*_(remove|get)|ddal_bcm_dstmac_.*remove|ddal_eth_switch_remove_multicast_filter",
            "ddal_bcm_ifp_dstmac_filtered_redirect_frame_action_add", "18, 20, kMac"),
    *undoes("ddal_bcm_ifp_cosq_.*_(remove|get)", "ddal_bcm_ifp_cosq_untagged_frame_action_add", "18, 4"),
    *undoes("ddal_bcm_ifp_preserve_.*_remove", "ddal_bcm_ifp_preserve_pcp_priority_frame_action_add", "18"),
    *undoes("ddal_bcm_loopback_remove|ddal_eth_switch_disable_loopback", "ddal_bcm_loopback_add", "18"),
    *undoes("ddal_bcm_tunneling_(remove|get)|ddal_eth_switch_(remove|get)_tunneling", "ddal_bcm_tunneling_set", "18, 20, 0"),
    *undoes("ddal_(bcm|eth_switch)_(ethertype_svlan_(get|remove)|(get|remove)_ethertype_svlan)",
            "ddal_bcm_ethertype_svlan_set", "18, 0x88a8, 7"),
    (r"ddal_(bcm|eth_switch)_.*(svlan_remove|delete_svlan|svlan_port_.*|add_svlan|remove_svlan|default_svlan_.*|"
     r"(set|get|remove)_default_svlan|vlan_translation.*|egress_translations.*)",
     {"setup": "CALL(ddal_bcm_svlan_create)(7);"}),
    (r"ddal_bcm_default_svlan_(get|remove)|ddal_eth_switch_(get|remove)_default_svlan",
     {"setup": "CALL(ddal_bcm_default_svlan_set)(18, 7);"}),
    (r"ddal_(bcm_svlan_port_remove|eth_switch_remove_svlan)", {"setup": "CALL(ddal_bcm_svlan_port_add)(18, 7);"}),
    (r"ddal_(bcm_vlan_translation_remove|eth_switch_remove_vlan_translation)",
     {"setup": "CALL(ddal_bcm_vlan_translation_add)(18, 100, 7);"}),
    (r"ddal_(bcm|eth_switch)_.*remove_static_arl_entry", {"setup": "CALL(ddal_bcm_add_static_arl_entry)(18, kMac, 100);"}),
    (r"ddal_(bcm_set_dscp.*|eth_switch_set_port_mapping_dscp.*)", {"setup": "CALL(ddal_bcm_set_mapping_mode)(18, 1);"}),
    (r"ex_switch_.*|ddal_ext_multiport_.*|is_BH3_type_multiport_switch", {"port": "3",
        "prepare": 'put("/run/ddal-multiport.lock", "");', "setup": 'control("multiport fitted on");'}),
    (r"ddal_ext_multiport_set_port_vlan_map", {"ports": "0x60"}),
    (r"telnet_bcmdiag", {"format": '"port %d"', "setup": "const Stream out = stream(nullptr);"}),
    # --- boot, flash ---
    (r"ddal_boot_update_uboot", {"prepare": 'put("/ffs/u-boot.img", "image");'}),
    (r"ddal_ffs_(is_mounted|remount|umount|cleanfs)", {
        "setup": "CALL(ddal_ffs_mount)(DDAL_FFS_1, DDAL_FFS_TYPE_EXT4, DDAL_FFS_MOUNT_WRITABLE);"}),
    (r"ddal_devicetree_get_reset_loop_counter_1", {"refuses": "the board has no such register"}),
    (r"ddal_devicetree_set_reset_loop_counter_1", {"value": "0xFFFFFFFF"}),
    # --- RF card ---
    (r"bsl_set_uart_speed", {"setup": 'int fd = open("/dev/ttyFPGA3", O_RDWR | O_NOCTTY | O_CLOEXEC);', "finish": CLOSE_LINE}),
    (r"bsl_(entry|reset|change_baud|rx_password)", {"setup": OPEN_LOADER, "always": CLOSE_LINE, "length": "32"}),
    (r"bsl_(load_pc|toggle_info|tx_bsl_version|tx_app_ver|erase.*|crc_check|[rt]x_data.*)",
     {"setup": UNLOCKED, "always": CLOSE_LINE, "address": "0x9000"}),
    (r"bsl_tx_data.*|bsl_rx_data.*", {"block": "&packet",
        "setup": "uint8_t room[256]{};\n    bsl_packet packet{4, room};\n    (void)packet;", "destination": "room"}),
    (r"bsl_crc_check", {"length": "16"}),
    (r"bsl_tx_pkt", {"setup": OPEN_LOADER + "\n    uint8_t room[] = {0x19};\n    bsl_packet command{1, room};",
        "packet": "&command", "always": CLOSE_LINE}),
    (r"bsl_rx_pkt|get_bsl_resp", {"setup": UNLOCKED +
        "\n    static uint8_t room[65536];\n    room[0] = 0x13; // toggle the lock of the information memory\n"
        "    bsl_packet packet{1, room};\n    CALL(bsl_tx_pkt)(fd, &packet, 0);", "packet": "&packet",
        "always": CLOSE_LINE}),
    (r"bsl_(crc_.*|print_memory)", {"buf": "kBytes", "buffer": "kBytes", "length": "16", "len": "16"}),
    (r"bsl_get_(up_version_addr|crc_max_length)", {"kind": "kNumber"}),
    (r"bsl_print_file_version", {"version": "kBytes"}),
    (r"bsl_parse_file", {"setup": "int fd = open(image(), O_RDONLY | O_CLOEXEC);\n    const uint32_t file_size = image_size();",
        "finish": "CALL(bsl_parse_release)(list);", "always": CLOSE_LINE}),
    (r"bsl_(get_file_version|parse_release)", {"list": "list",
        "setup": """int image_fd = open(image(), O_RDONLY | O_CLOEXEC);
    bsl_record *list = nullptr;
    uint8_t first[8];
    CALL(bsl_parse_file)(&list, first, image_fd, image_size());
    close(image_fd);"""}),
    (r"bsl_get_file_version", {"finish": "CALL(bsl_parse_release)(list);"}),
    (r"bsl_generate_pattern_record", {"data": "room", "setup": "static uint8_t room[4] = {1, 2, 3, 4};"}),
    (r"bsl_upgrade_up_image|bsl_codeload|ddal_ext_rfcard_(upgrade|verify)", {"path": "image()"}),
    (r"bsl_codeload", {"setup": UNLOCKED, "always": CLOSE_LINE}),
    # --- logic ---
    (r"ddal_fpga_wait_datapath_alarm", {"refuses": "the board has no such channel"}),
    (r"ddal_cpld_.*", {"address": "0x204"}),
    (r"ddal_dfe_.*", {"value": "kBytes", "mask": "kBytes", "address": "0x10"}),
    (r"ddal_rf_fpga_.*", {"address": "0x100"}),
    (r"ddal_rf_fpga_write.*", {"buf": "kWords"}),
    (r"ddal_rf_fpga_(open|laa_open)|ddal_fpga_rf_pwr_open|ddal_(rp3|refab)_alarm_event_open|"
     r"ddal_sfp_status_event_open|ddal_phy_copper_event_open", {"finish": "close(fd);"}),
    (r"ddal_rf_fpga_(close|lock|unlock|.*_fd)", {"setup": "int fd = -1;\n    CALL(ddal_rf_fpga_open)(0, &fd);"}),
    (r"ddal_rf_fpga_(lock|unlock|.*_fd)", {"always": "CALL(ddal_rf_fpga_close)(fd);"}),
    (r"ddal_fpga_rf_pwr_(wait|close)", {"setup": "int fd = -1;\n    CALL(ddal_fpga_rf_pwr_open)(&fd);"}),
    (r"ddal_fpga_rf_pwr_wait", {"prepare": 'control("power-meter stop");',
        "setup": POWER_RECORD, "between": POWER_RECORD, "always": "close(fd);"}),
    (r"ddal_rp3_alarm_event_close", {"setup": "int fd = -1;\n    CALL(ddal_rp3_alarm_event_open)(&fd);"}),
    (r"ddal_refab_alarm_event_close", {"setup": "int fd = -1;\n    CALL(ddal_refab_alarm_event_open)(&fd);"}),
    (r"ddal_rp3_validate_aif", {"event": '"campaign"', "apart": "the result is that of the logging alone",
        "prepare": 'put("/var/log/kvbinit.log", "older entry");'}),
    (r"ddal_rf_fpga_slow_meas_report_(wait|set_period|close)", {
        "setup": "ddal_rf_fpga_slow_meas *desc = nullptr;\n    CALL(ddal_rf_fpga_slow_meas_report_open)(&desc, 100);"}),
    (r"ddal_rf_fpga_slow_meas_report_(wait|set_period)", {"always": "CALL(ddal_rf_fpga_slow_meas_report_close)(desc);"}),
    (r"ddal_rf_fpga_slow_meas_report_close", {"in_child": "Invalid Descriptor"}),
    (r"ddal_rf_fpga_slow_meas_report_open", {"finish": "CALL(ddal_rf_fpga_slow_meas_report_close)(out);"}),
    (r"ddal_rf_fpga_laa_(wait|close)", {"setup": "int fd = -1;\n    CALL(ddal_rf_fpga_laa_open)(&fd);"}),
    (r"ddal_rf_fpga_laa_wait", {"setup": LAA_RECORD, "between": LAA_RECORD, "always": "close(fd);"}),
    (r"ddal_rf_fpga_laa_(prescan|dfs|sas)_open.*", {"finish": "free_laa(out);"}),
    *[(rf"ddal_rf_fpga_laa_{kind}_(wait|close)", {
        "setup": f"ddal_rf_fpga_laa_{kind} *handle = nullptr;\n    CALL(ddal_rf_fpga_laa_{kind}_open)(0, &handle);"})
      for kind in ("prescan", "dfs", "sas")],
    *[(rf"ddal_rf_fpga_laa_{kind}_wait", {"desc": "handle", "setup": f'control("laa {kind} 0{value}");',
        "between": f'control("laa {kind} 0{value}");',
        "always": f"CALL(ddal_rf_fpga_laa_{kind}_close)(&handle);"})
      for kind, value in (("prescan", " 200"), ("dfs", " 7"), ("sas", ""))],
    (r"ddal_rf_fpga_laa_(prescan|dfs|sas)_close", {"desc": "&handle"}),
    # --- platform ---
    (r"ddal_sfn_set", {"refuses": "the driver sets the frame number"}),
    (r"ddal_sfn_wait_for", {"setup": "uint32_t sfn = 0;\n    CALL(ddal_sfn_get)(&sfn, nullptr);\n    sfn = (sfn + 2) % 4096;",
        "sfn": "&sfn"}),
    (r"ddal_clk_event_wait_until", {"event": "DDAL_CLK_EVENT_PPS"}),
    (r"ddal_emtimer_(create|settime|destroy)", {"setup": 'control("emtimer clear");\n    '
        "CALL(ddal_emtimer_config)(1, 2, 3, 4, 5, 6);"}),
    (r"ddal_emtimer_(settime|destroy)", {"id": "id",
        "setup": "uint32_t id = 0;\n    CALL(ddal_emtimer_create)(1, 2, nullptr, &id);"}),
    (r"ddal_led_set_global_state", {"state": "1"}),
    (r"ddal_sfp_ctrl_set", {"value": "1"}),
    (r"ddal_sfp_memory_read", {"buffer": "room", "setup": "uint8_t room[4]{};"}),
    (r"ddal_sfp_is_compliance_code_set", {"bit": "3"}),
    (r"ddal_sfp_status_event_(get|close)", {
        "setup": "int fd = -1;\n    CALL(ddal_sfp_status_event_open)(DDAL_SFP_1, DDAL_SFP_STATUS_PRESENCE, &fd);"}),
    (r"ddal_sfp_status_event_get", {"always": "CALL(ddal_sfp_status_event_close)(fd);"}),
    # --- PHYs and links ---
    (r"ddal_phy_copper_.*master_slave.*", {"phy_dev": "3"}),
    (r"ddal_phy_event_register_linux_interface", {"ifname": '"eth1"'}),
    (r"ddal_phy_event_register_(broadcom|marvell)_switch", {"port": "20"}),
    (r"ddal_phy_event_register_marvell_switch", { # the others also connect to the bus
        "setup": "CALL(ddal_phy_event_unregister)(CALL(ddal_phy_event_register_broadcom_switch)(18));"}),
    (r"ddal_phy_event_register_.*", {"finish": "CALL(ddal_phy_event_unregister)(static_cast<int>(made));"}),
    (r"ddal_phy_event_(retrieve|unregister)", {
        "setup": "int fd = CALL(ddal_phy_event_register_broadcom_switch)(20);"}),
    (r"ddal_phy_(event_(retrieve|unregister)|copper_event_(get|close))", {
        "in_child": "ddal_phy_event_register has not been called yet"}),
    (r"ddal_phy_(event_register_.*|copper_event_open)", {"in_child": "phy event loop is not running!"}),
    (r"ddal_phy_event_retrieve", {"always": "CALL(ddal_phy_event_unregister)(fd);"}),
    (r"ddal_phy_copper_event_(get|close)", {"setup": "int fd = -1;\n    CALL(ddal_phy_copper_event_open)(3, 0, &fd);"}),
    (r"ddal_phy_copper_event_get", {"always": "CALL(ddal_phy_copper_event_close)(fd);"}),
    (r"ddal_phy_copper_event_open", {"phy_dev": "3", "finish": "CALL(ddal_phy_copper_event_close)(fd);"}),
    # --- DMA memory and driver adaptation ---
    (r"ddal_cma_(alloc|phy_to_virt|virt_to_phy|enable_user_pmu)", {"setup": "CALL(ddal_cma_init_once)();"}),
    (r"ddal_cma_alloc", {"size": "64"}),
    (r"ddal_cma_virt_to_phy", {"setup": "uint32_t virt = 0;\n    CALL(ddal_cma_phy_to_virt)(0xa0000000, &virt);"}),
    (r"Osal_.*Cs(Enter|Exit)", {"setup": "free_sections();\n    CALL(Osal_startup)();"}),
    *[(rf"Osal_{section}CsExit", {"setup": f"CALL(Osal_{section}CsEnter)({key});"}) for section, key in
      (("cppi", ""), ("qmss", ""), ("saMt", "nullptr"), ("qmssMt", ""), ("paMt", "nullptr"), ("sa", "nullptr"),
       ("qmssAcc", ""))],
    *[(rf"Osal_{section}CsEnter", {"finish": f"CALL(Osal_{section}CsExit)({key});",
        "between": f"CALL(Osal_{section}CsExit)({key});"}) for section, key in
      (("cppi", "nullptr"), ("qmss", "nullptr"), ("saMt", "0"), ("qmssMt", "nullptr"), ("paMt", "0"), ("sa", "0"),
       ("qmssAcc", "nullptr"))],
    (r"Osal_(cppi|qmss)Malloc", {"size": "100"}),
    (r"Osal_cppiMalloc", {"finish": "CALL(Osal_cppiFree)(made, 100);"}),
    (r"Osal_qmssMalloc", {"finish": "CALL(Osal_qmssFree)(made, 100);"}),
    (r"Osal_cppiFree", {"setup": "void *block = CALL(Osal_cppiMalloc)(100);",
        "between": "block = CALL(Osal_cppiMalloc)(100);"}),
    (r"Osal_qmssFree", {"setup": "void *block = CALL(Osal_qmssMalloc)(100);",
        "between": "block = CALL(Osal_qmssMalloc)(100);"}),
    (r"Osal_.*MemAccess|Osal_.*ScAccess", {"block": "nullptr"}),
    (r"Osal_.*Log", {"format": 'const_cast<char *>("queue %d")'}),
    (r"Osal_(qmssPhyToVirt|qmssVirtToPhy|saGetSCPhyAddr|qmssConvert.*)", {
        "setup": "CALL(ddal_cma_init_once)();\n    uint32_t virt = 0;\n    CALL(ddal_cma_phy_to_virt)(0xa0000000, &virt);",
        "addr": "address(virt)", "desc": "address(virt)"}),
    (r"Osal_qmss(PhyToVirt|ConvertDescPhyToVirt)", {"addr": "address(0xa0000000)", "desc": "address(0xa0000000)"}),
    (r"Osal_qmssMemBarrier", {"desc": "nullptr"}),
    (r"Osal_qmssMemBarrier|Osal_.*CsEnter", {"kind": "kNumber"}),
]
