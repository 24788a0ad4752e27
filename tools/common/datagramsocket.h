#pragma once
#include <cstdint>
#include <netinet/in.h>
#include <string>

namespace vxcommon {

// An IPv4 UDP socket set up the way the tools need it, and the IPv4 address
// handling they share. Each step reports failure by its result, with errno
// (for resolve(), the resolver's reason) saying why, so that every tool
// words its own message; systemError() appends errno's text.
//
// Buffer sizes are asked for with the forced socket option first, which
// passes the system limit but needs CAP_NET_ADMIN, and with the plain one
// (capped by net.core.[rw]mem_max) when that is refused.
//
// Ownership: owns the descriptor. Threads: one thread at a time.
class DatagramSocket
{
public:
    DatagramSocket() = default;
    ~DatagramSocket();
    DatagramSocket(const DatagramSocket&) = delete;
    DatagramSocket& operator=(const DatagramSocket&) = delete;

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

    // Creates the socket (close-on-exec). False with errno set.
    bool open();
    void close();
    int fd() const { return sock; }

    // Sets an integer option; false with errno set.
    bool set(int level, int option, int value);
    // Ask for a send or receive buffer of `bytes`; return the size the kernel
    // granted.
    int requestSendBuffer(int bytes);
    int requestReceiveBuffer(int bytes);
    // False with errno set.
    bool bind(const sockaddr_in& local);
    bool connect(const sockaddr_in& remote);
    // The local port, as bound.
    int localPort() const;

private:
    int requestBuffer(int forced, int plain, int bytes);

    int sock = -1;
};

} // namespace vxcommon
