// Shared parts of the link-event tests: the MBO board, whose device 3 is port 20 of the switch, device 0 port 14,
// device 1 port 18.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <string>

#include <ddal/phy.h>

#include "support/board.h"

namespace testing_board {

inline constexpr int kSoon = 5000; // ms; limit for an expected event
inline constexpr int kNever = 150; // ms; time without an unexpected event

inline bool becomes_readable(int fd, int limit_ms)
{
    pollfd waiting{fd, POLLIN, 0};
    return poll(&waiting, 1, limit_ms) == 1;
}

// Returns the state of the descriptor's next event or the failure of retrieving it, and -1 if none arrives.
inline int next_state(int fd, int limit_ms = kSoon)
{
    if (!becomes_readable(fd, limit_ms))
        return -1;
    uint16_t state = 9;
    const int rc = ddal_phy_event_retrieve(fd, &state);
    return rc == 0 ? state : rc;
}

class LinkEvents : public testing::Test {
protected:
    void SetUp() override
    {
        for (const char *device : {"0", "1", "3", "4"})
            ctl(std::string("link ") + device + " up");
    }
};

} // namespace testing_board
