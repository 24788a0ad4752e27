#include "scanner/udpsocket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace strmsocket {

UdpSocket::~UdpSocket()
{
    close();
}

bool UdpSocket::open(int p, const std::string& address, std::size_t receiveBuffer, bool ancillary)
{
    close();
    if (p < 0 || p > 65535)
        return false;
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_port = htons(static_cast<uint16_t>(p));
    if (address.empty())
        sa.sin_addr.s_addr = htonl(INADDR_ANY);
    else if (inet_pton(AF_INET, address.c_str(), &sa.sin_addr) != 1)
        return false;

    sock = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (sock < 0)
        return false;
    const int want = receiveBuffer > 0x7fffffff ? 0x7fffffff : static_cast<int>(receiveBuffer);
    // The forced variant passes the system limit but needs CAP_NET_ADMIN;
    // without it the plain request is capped by net.core.rmem_max.
    if (::setsockopt(sock, SOL_SOCKET, SO_RCVBUFFORCE, &want, sizeof want) != 0)
        ::setsockopt(sock, SOL_SOCKET, SO_RCVBUF, &want, sizeof want);
    if (ancillary) {
        const int on = 1;
        ::setsockopt(sock, SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on);
        ::setsockopt(sock, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
    }
    if (::bind(sock, reinterpret_cast<sockaddr*>(&sa), sizeof sa) != 0) {
        close();
        return false;
    }
    socklen_t len = sizeof rcvbuf;
    if (::getsockopt(sock, SOL_SOCKET, SO_RCVBUF, &rcvbuf, &len) != 0)
        rcvbuf = 0;
    sockaddr_in bound{};
    len = sizeof bound;
    port = ::getsockname(sock, reinterpret_cast<sockaddr*>(&bound), &len) == 0
               ? ntohs(bound.sin_port)
               : p;
    wakeFd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeFd < 0) {
        close();
        return false;
    }
    return true;
}

void UdpSocket::close()
{
    if (sock >= 0)
        ::close(sock);
    if (wakeFd >= 0)
        ::close(wakeFd);
    sock = wakeFd = -1;
    port = 0;
    rcvbuf = 0;
}

int UdpSocket::wait(int timeoutMs)
{
    pollfd fds[2] = {{sock, POLLIN, 0}, {wakeFd, POLLIN, 0}};
    for (;;) {
        const int r = ::poll(fds, 2, timeoutMs);
        if (r < 0 && errno == EINTR)
            continue;
        if (r < 0)
            return -1;
        if (fds[1].revents & POLLIN) {
            uint64_t wakes = 0;
            [[maybe_unused]] ssize_t n = ::read(wakeFd, &wakes, sizeof wakes);
            return 2;
        }
        if (r == 0)
            return 0;
        if (fds[0].revents & POLLNVAL)
            return -1;
        return 1;
    }
}

void UdpSocket::wake()
{
    if (wakeFd >= 0) {
        const uint64_t one = 1;
        [[maybe_unused]] ssize_t w = ::write(wakeFd, &one, sizeof one);
    }
}

} // namespace strmsocket
