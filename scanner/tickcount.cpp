#include "scanner/tickcount.h"

#include <ctime>

namespace vxtools {

uint64_t gettickcount()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
}

} // namespace vxtools
