#include "daemon/requests.h"

#include <cerrno>

namespace vboard {

// No board has interface or switch models yet: every interface is unknown, the switch's service does not answer.
void serve_request(Board &, const RequestHeader &header, Bytes, const Answer &answer)
{
    answer.fail(header.op == Op::kInterface ? ENODEV : ENXIO);
}

} // namespace vboard
