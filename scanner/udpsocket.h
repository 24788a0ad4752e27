#pragma once
#include "scanner/datagramsource.h"

#include <cstddef>
#include <cstdint>
#include <netinet/in.h>
#include <string>

namespace strmsocket {

// The one IPv4 UDP socket of the viewer and the tools, for receiving and for
// sending, and the IPv4 address handling they share.
//
// Receiving (the viewer's receive threads, the capture tool): open(port, ...)
// binds, asks for a receive buffer, turns on what the kernel should tell of
// each datagram and adds a wake-up descriptor, so that a thread blocked in
// wait() can be released at once by another thread (wake()); receive() is
// the one place that reads a datagram with what the kernel knows of it.
// Binding never sets SO_REUSEADDR/SO_REUSEPORT: a port already in use fails.
// Cannot hold back: what is not read in time is dropped by the kernel.
//
// Sending (the simulator, the replay tool) and sockets of one's own (tests):
// open() creates a plain socket; requestSendBuffer(), set() (SO_BROADCAST,
// for instance), bind() and connect() set it up step by step, each reporting
// failure by its result with errno saying why, so that every tool words its
// own message (systemError() appends errno's text). The caller sends on fd().
//
// Buffer sizes are asked for with the forced socket option first, which
// passes the system limit but needs CAP_NET_ADMIN, and with the plain one
// (capped by net.core.[rw]mem_max) when that is refused.
//
// Ownership: owns its descriptors. Threads: open()/close() and the set-up by
// the owner while no thread waits; wait(), receive() and sending by one
// thread; wake() from any.
class UdpSocket : public DatagramSource
{
public:
    UdpSocket() = default;
    ~UdpSocket() override;
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;

    // A host name or dotted address resolved to IPv4, with `port`. False with
    // the resolver's reason in `why`.
    static bool resolve(const std::string& host, uint16_t port, sockaddr_in& out, std::string& why);
    // Dotted IPv4 text with `port`; empty text stands for every local
    // address. False when the text is not an IPv4 address.
    static bool parse(const std::string& text, uint16_t port, sockaddr_in& out);
    // "a.b.c.d:port".
    static std::string text(const sockaddr_in& address);
    // "what: " followed by the text of errno.
    static std::string systemError(const std::string& what);

    // Receiving: binds `port` on `address` (all interfaces when empty) and
    // asks for a receive buffer of `receiveBuffer` bytes. `ancillary` turns
    // on SO_RXQ_OVFL (the kernel's drop count), SO_TIMESTAMPNS (each
    // datagram's arrival time) and IP_PKTINFO (the local address it arrived
    // on) as control messages. False and closed when the address is not IPv4
    // text or the port cannot be bound; errno then says why.
    bool open(int port, const std::string& address, std::size_t receiveBuffer, bool ancillary);
    // A plain socket (close-on-exec), neither bound nor connected, without a
    // wake-up descriptor. False with errno set.
    bool open();
    void close();
    bool isOpen() const { return sock >= 0; }
    int fd() const { return sock; }

    // Sets an integer option; false with errno set.
    bool set(int level, int option, int value);
    // Asks for a send or receive buffer of `bytes`; the size the kernel
    // granted.
    int requestSendBuffer(int bytes);
    int requestReceiveBuffer(int bytes);
    // False with errno set.
    bool bind(const sockaddr_in& local);
    bool connect(const sockaddr_in& remote);

    // The local port as bound (0 when closed or not bound yet).
    int localPort() const;
    // The effective receive buffer size as the kernel reported it to open().
    int receiveBufferSize() const { return rcvbuf; }

    // Reads one waiting datagram with the kernel's receive time, the local
    // address it arrived on and the socket's drop count.
    int receive(char* buffer, std::size_t capacity, Datagram& out) override;
    // Waits up to `timeoutMs` for a datagram (with `forData` false, only
    // for a wake-up): 1 readable, 0 timed out, 2 woken by wake() (the wake-up
    // is consumed), -1 the socket failed. Wake-ups fold into one.
    int wait(int timeoutMs, bool forData = true) override;
    void wake() override;

private:
    int requestBuffer(int forced, int plain, int bytes);

    int sock = -1;
    int wakeFd = -1;
    int rcvbuf = 0;
};

} // namespace strmsocket
