// Requests without a node: network interfaces and the switch's client library.
#pragma once

#include "daemon/board.h"
#include "page/protocol.h"

namespace vboard {

void serve_request(Board &board, const RequestHeader &header, Bytes payload, const Answer &answer);

} // namespace vboard
