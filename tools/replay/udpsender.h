#pragma once
#include "tools/replay/datagramsink.h"

#include <cstdint>
#include <netinet/in.h>
#include <string>

namespace vxrec {

// Sends datagram payloads to one IPv4 host and port from an unbound UDP
// socket. Ownership: owns the socket. Threads: one thread at a time.
class UdpSender : public DatagramSink
{
public:
    UdpSender() = default;
    ~UdpSender() override;
    UdpSender(const UdpSender&) = delete;
    UdpSender& operator=(const UdpSender&) = delete;

    // Resolves `host` (name or dotted address) to IPv4 and opens the socket.
    bool open(const std::string& host, uint16_t port);
    bool send(const uint8_t* data, std::size_t n) override;
    std::string error() const override { return message; }
    // The resolved destination as "a.b.c.d:port".
    const std::string& destination() const { return target; }

private:
    int fd = -1;
    sockaddr_in address{};
    std::string target;
    std::string message;
};

} // namespace vxrec
