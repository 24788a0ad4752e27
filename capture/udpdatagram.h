#pragma once
#include <cstddef>
#include <cstdint>

namespace vxrec {

// One UDP datagram found in a capture. Plain record; `data` points into a
// buffer owned by whoever produced it (see DatagramExtractor::next).
struct UdpDatagram
{
    int64_t timeNs = 0;  // capture time of the frame that completed it
    uint32_t source = 0; // IPv4 addresses, host byte order
    uint32_t destination = 0;
    uint16_t sourcePort = 0;
    uint16_t destinationPort = 0;
    const uint8_t* data = nullptr; // the UDP payload
    std::size_t length = 0;
    uint64_t offset = 0; // file offset of the first frame that carries it
};

} // namespace vxrec
