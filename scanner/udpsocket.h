#pragma once
#include "scanner/datagramsource.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace strmsocket {

// An IPv4 UDP receiving socket with a wake-up descriptor, so that a thread
// blocked in wait() can be released at once by another thread (wake()), and
// the one place that reads a datagram with what the kernel knows of it
// (receive()): the viewer's receive threads and the capture tool use it.
// Binding never sets SO_REUSEADDR/SO_REUSEPORT: a port already in use fails.
// Ownership: owns both descriptors. Threads: open()/close() by the owner
// while no thread waits; wait() and reads by one thread; wake() from any.
// Cannot hold back: what is not read in time is dropped by the kernel.
class UdpSocket : public DatagramSource
{
public:
    UdpSocket() = default;
    ~UdpSocket();
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;

    // Binds `port` on `address` (all interfaces when empty) and asks for a
    // receive buffer of `receiveBuffer` bytes (forced beyond the system limit
    // when the process may). `ancillary` turns on SO_RXQ_OVFL (the kernel's
    // drop count), SO_TIMESTAMPNS (each datagram's arrival time) and
    // IP_PKTINFO (the local address it arrived on) as control messages.
    // False and closed when the address is not IPv4 text or the port cannot
    // be bound; errno then says why.
    bool open(int port, const std::string& address, std::size_t receiveBuffer, bool ancillary);

    // Reads one waiting datagram with the kernel's receive time, the local
    // address it arrived on and the socket's drop count.
    int receive(char* buffer, std::size_t capacity, Datagram& out) override;
    void close();
    bool isOpen() const { return sock >= 0; }

    int fd() const { return sock; }
    int localPort() const { return port; }
    // The effective receive buffer size as the kernel reports it.
    int receiveBufferSize() const { return rcvbuf; }

    // Waits up to `timeoutMs` for a datagram (with `forData` false, only
    // for a wake-up): 1 readable, 0 timed out, 2 woken by wake() (the wake-up
    // is consumed), -1 the socket failed. Wake-ups fold into one.
    int wait(int timeoutMs, bool forData = true) override;
    void wake() override;

private:
    int sock = -1;
    int wakeFd = -1;
    int port = 0;
    int rcvbuf = 0;
};

} // namespace strmsocket
