#pragma once
#include <cstdint>

namespace vxtools {

// Monotonic milliseconds (CLOCK_MONOTONIC). Any thread.
uint64_t gettickcount();

} // namespace vxtools
