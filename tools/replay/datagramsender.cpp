#include "tools/replay/datagramsender.h"

#include <cerrno>
#include <sys/socket.h>
#include <time.h>

namespace vxrec {

using strmsocket::UdpSocket;

bool DatagramSender::open(const std::string& host, uint16_t port)
{
    std::string why;
    if (!UdpSocket::resolve(host, port, address, why)) {
        message = "cannot resolve " + host + " to an IPv4 address: " + why;
        return false;
    }
    target = UdpSocket::text(address);
    if (!socket.open()) {
        message = UdpSocket::systemError("cannot open a UDP socket");
        return false;
    }
    // A large send buffer absorbs bursts (--fast, catching up).
    socket.requestSendBuffer(8 << 20);
    // Sending to a broadcast address needs the permission flag.
    socket.set(SOL_SOCKET, SO_BROADCAST, 1);
    return true;
}

bool DatagramSender::send(const uint8_t* data, std::size_t n)
{
    if (socket.fd() < 0) {
        message = "not open";
        return false;
    }
    const auto* to = reinterpret_cast<const sockaddr*>(&address);
    // The kernel may briefly refuse with ENOBUFS when its queues are full:
    // wait a little and try again rather than lose the datagram.
    for (int attempt = 0;; ++attempt) {
        if (::sendto(socket.fd(), data, n, 0, to, sizeof address) >= 0)
            return true;
        if ((errno != ENOBUFS && errno != EAGAIN && errno != EINTR) || attempt == 100)
            break;
        const timespec pause{0, 200000};
        nanosleep(&pause, nullptr);
    }
    message = UdpSocket::systemError("send to " + target + " failed");
    return false;
}

} // namespace vxrec
