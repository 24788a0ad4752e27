#pragma once
#include <cstdint>

namespace strmsocket {

// The sender of a message, as the receive thread saw it. Filled by the library
// before a callback and valid for the duration of that callback only.
struct VxStreamDeviceInfo
{
    char ip[16] = {0};      // sender's IPv4 address, dotted, NUL-terminated
    uint32_t device = 0;    // device number taken from the message
    uint16_t port = 0;      // sender's UDP port
};

} // namespace strmsocket
