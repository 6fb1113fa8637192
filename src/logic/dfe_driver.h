// The DFE driver's register node: a plain byte space, address = file offset. Users serialise with flock.
#pragma once

namespace ddal::logic {

inline constexpr const char *kDfeNode = "/dev/dfe";

} // namespace ddal::logic
