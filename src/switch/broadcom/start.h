// The one attachment of this process to the switch's user service.
#pragma once

namespace ddal::ethswitch {

// Attaches on the first call; later calls only tell how that went. 0 or -1001.
int open_bcm_switch();

// The steps of the attachment. Leaves the switch closed at the first that fails.
void initialize_eth_switch();

// Starts the remote calls and attaches unit 0. 0 or -1001.
int broadcom_rpc_client_run();

} // namespace ddal::ethswitch
