// The log file of link snapshots, shared by all processes and limited in size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include <ddal/rp3.h>

namespace ddal::logic {

inline constexpr const char *kLinkLog = DDAL_RP3_LINK_LOG;
inline constexpr const char *kLinkLogTemporary = "/var/log/kvbinit.log.tmp";
inline constexpr size_t kLinkLogLimit = 102400; // bytes; of an entry only its two texts count
inline constexpr const char *kLinkLogSemaphore = DDAL_RP3_LINK_LOG_SEMAPHORE;

// Appends an entry. Cuts off the oldest bytes first if the entry would not fit. Returns 0 or DDAL_ERR_FAILURE.
int append_link_log(const char *event, const char *text);

// Cuts the log so that `add_len` bytes more stay within the limit. `*log` is the log, open for appending before and
// after the call; after a failure it may be null. Returns 0 or DDAL_ERR_FAILURE.
int resize_log_file(FILE **log, size_t add_len);

} // namespace ddal::logic
