#pragma once
#include "scanner/udpsocket.h"

#include <cstdint>
#include <string>
#include <sys/socket.h>
#include <vector>

namespace vxsim {

// Sends wire messages (raw lines, file headers) from a UDP socket connected
// to the receiver, each split into datagrams under its own message number.
//
// queue() splits a message into datagrams under the next message number;
// flush() hands everything queued to the kernel in batches (sendmmsg). The
// socket blocks when its (large) send buffer is full, which paces bursts
// instead of dropping them locally. A datagram the kernel refuses (for
// example ECONNREFUSED after an ICMP "port unreachable" when nobody listens
// on loopback) is counted as an error and skipped; sending goes on.
//
// Ownership: owns the socket. Threads: one thread at a time.
class MessageSender
{
public:
    // Resolves `host` (IPv4), opens the socket and connects it to host:port.
    // False with a message in `error` when the host does not resolve or the
    // socket cannot be set up.
    bool open(const std::string& host, int port, std::string& error);

    // Queues the datagrams of one message.
    void queue(const std::vector<char>& message);
    // Sends everything queued.
    void flush();

    uint64_t messages() const { return messageCount; }
    uint64_t datagrams() const { return datagramCount; }
    uint64_t bytes() const { return byteCount; }
    uint64_t errors() const { return errorCount; }
    // errno of the last failed send, 0 for none.
    int lastError() const { return lastErrno; }

private:
    strmsocket::UdpSocket socket;
    uint32_t nextNumber = 1;
    std::vector<std::vector<char>> pending;
    // sendmmsg's vectors, reused from flush to flush.
    std::vector<iovec> iov;
    std::vector<mmsghdr> headers;
    uint64_t messageCount = 0, datagramCount = 0, byteCount = 0, errorCount = 0;
    int lastErrno = 0;
};

} // namespace vxsim
