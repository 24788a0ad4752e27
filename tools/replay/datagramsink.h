#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

namespace vxrec {

// Where the replayer sends datagram payloads: a UDP socket in the tool, a
// recorder in tests. Called from the replaying thread only.
class DatagramSink
{
public:
    virtual ~DatagramSink() = default;
    // False when the payload could not be sent; error() says why.
    virtual bool send(const uint8_t* data, std::size_t n) = 0;
    virtual std::string error() const { return {}; }
};

} // namespace vxrec
