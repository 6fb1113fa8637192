// Which release of the SDK the client library behaves as: its records differ in size and layout.
#pragma once

namespace vboard::client_library {

enum class Release { kCurrent, kWide, kOld };
extern Release release;

// Whether this process has come through the start-up.
bool is_attached();

} // namespace vboard::client_library
