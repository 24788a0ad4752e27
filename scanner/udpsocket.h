#pragma once
#include <cstddef>
#include <string>

namespace strmsocket {

// An IPv4 UDP receiving socket with a wake-up descriptor, so that a thread
// blocked in wait() can be released at once by another thread (wake()).
// Binding never sets SO_REUSEADDR/SO_REUSEPORT: a port already in use fails.
// Ownership: owns both descriptors. Threads: open()/close() by the owner
// while no thread waits; wait() and reads by one thread; wake() from any.
class UdpSocket
{
public:
    UdpSocket() = default;
    ~UdpSocket();
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;

    // Binds `port` on `address` (all interfaces when empty) and asks for a
    // receive buffer of `receiveBuffer` bytes (forced beyond the system limit
    // when the process may). `ancillary` turns on SO_RXQ_OVFL (the kernel's
    // drop count) and SO_TIMESTAMPNS (each datagram's arrival time) as
    // control messages. False and closed when the address is not IPv4 text or
    // the port cannot be bound.
    bool open(int port, const std::string& address, std::size_t receiveBuffer, bool ancillary);
    void close();
    bool isOpen() const { return sock >= 0; }

    int fd() const { return sock; }
    int localPort() const { return port; }
    // The effective receive buffer size as the kernel reports it.
    int receiveBufferSize() const { return rcvbuf; }

    // Waits up to `timeoutMs` for a datagram: 1 readable, 0 timed out,
    // 2 woken by wake() (the wake-up is consumed), -1 the socket failed.
    int wait(int timeoutMs);
    // Releases a thread blocked in wait(), or makes its next wait() return 2
    // at once. Wake-ups before that wait() fold into one.
    void wake();

private:
    int sock = -1;
    int wakeFd = -1;
    int port = 0;
    int rcvbuf = 0;
};

} // namespace strmsocket
