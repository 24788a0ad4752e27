#pragma once
#include "scanner/udpsocket.h"
#include "tools/replay/datagramsink.h"

#include <cstdint>
#include <netinet/in.h>
#include <string>

namespace vxrec {

// Sends replayed datagram payloads, each as it is, to one IPv4 host and port
// from an unbound, unconnected UDP socket (so that an ICMP "port
// unreachable" from a receiver not yet running does not fail later sends).
// Ownership: owns the socket. Threads: one thread at a time.
class DatagramSender : public DatagramSink
{
public:
    // Resolves `host` (name or dotted address) to IPv4 and opens the socket.
    bool open(const std::string& host, uint16_t port);
    bool send(const uint8_t* data, std::size_t n) override;
    std::string error() const override { return message; }
    // The resolved destination as "a.b.c.d:port".
    const std::string& destination() const { return target; }

private:
    strmsocket::UdpSocket socket;
    sockaddr_in address{};
    std::string target;
    std::string message;
};

} // namespace vxrec
