// The single attachment of this process to the switch's user service.
#pragma once

namespace ddal::ethswitch {

// Attaches on the first call. Later calls return the same result: 0 or DDAL_ERR_FAILURE.
int open_bcm_switch();

// Runs the steps of the attachment. Leaves the switch closed at the first that fails.
void initialize_eth_switch();

// Starts the remote calls and attaches unit 0. Returns 0 or DDAL_ERR_FAILURE.
int broadcom_rpc_client_run();

} // namespace ddal::ethswitch
