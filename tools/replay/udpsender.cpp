#include "tools/replay/udpsender.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

namespace vxrec {

UdpSender::~UdpSender()
{
    if (fd >= 0)
        ::close(fd);
}

bool UdpSender::open(const std::string& host, uint16_t port)
{
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    const int rc = getaddrinfo(host.c_str(), nullptr, &hints, &found);
    if (rc != 0 || !found) {
        message = "cannot resolve " + host + " to an IPv4 address: " + gai_strerror(rc);
        return false;
    }
    sockaddr_in to{};
    std::memcpy(&to, found->ai_addr, sizeof to);
    freeaddrinfo(found);
    to.sin_port = htons(port);
    address = to;
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &to.sin_addr, text, sizeof text);
    target = std::string(text) + ':' + std::to_string(port);

    fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        message = std::string("cannot open a UDP socket: ") + std::strerror(errno);
        return false;
    }
    // A large send buffer absorbs bursts (--fast, catching up).
    const int size = 8 << 20;
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    // Sending to a broadcast address needs the permission flag.
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    return true;
}

bool UdpSender::send(const uint8_t* data, std::size_t n)
{
    if (fd < 0) {
        message = "not open";
        return false;
    }
    const auto* to = reinterpret_cast<const sockaddr*>(&address);
    // The kernel may briefly refuse with ENOBUFS when its queues are full:
    // wait a little and try again rather than lose the datagram.
    for (int attempt = 0;; ++attempt) {
        if (::sendto(fd, data, n, 0, to, sizeof(sockaddr_in)) >= 0)
            return true;
        if ((errno != ENOBUFS && errno != EAGAIN && errno != EINTR) || attempt == 100)
            break;
        const timespec pause{0, 200000};
        nanosleep(&pause, nullptr);
    }
    message = "send to " + target + " failed: " + std::strerror(errno);
    return false;
}

} // namespace vxrec
