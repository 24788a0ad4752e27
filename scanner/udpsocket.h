#pragma once
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
    // drop count), SO_TIMESTAMPNS (each datagram's arrival time) and
    // IP_PKTINFO (the local address it arrived on) as control messages.
    // False and closed when the address is not IPv4 text or the port cannot
    // be bound; errno then says why.
    bool open(int port, const std::string& address, std::size_t receiveBuffer, bool ancillary);

    // What receive() learnt of one datagram.
    struct Datagram
    {
        std::size_t length = 0;
        uint32_t sender = 0; // IPv4 address, host byte order
        uint16_t senderPort = 0;
        uint32_t local = 0;     // the address it arrived on; 0 when not known
        int64_t receivedNs = 0; // the kernel's receive time (CLOCK_REALTIME); 0 when not known
        bool dropsKnown = false;
        uint32_t kernelDrops = 0; // datagrams the socket dropped so far (SO_RXQ_OVFL)
    };
    // Reads one waiting datagram into `buffer` (`capacity` bytes; a longer
    // datagram is cut) without waiting: 1 read, 0 none waits (or a signal
    // came), -1 failed with errno set.
    int receive(char* buffer, std::size_t capacity, Datagram& out);
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
