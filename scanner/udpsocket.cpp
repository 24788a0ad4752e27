#include "scanner/udpsocket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
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
        ::setsockopt(sock, IPPROTO_IP, IP_PKTINFO, &on, sizeof on);
    }
    if (::bind(sock, reinterpret_cast<sockaddr*>(&sa), sizeof sa) != 0) {
        const int why = errno;
        close();
        errno = why;
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

int UdpSocket::wait(int timeoutMs, bool forData)
{
    pollfd fds[2] = {{wakeFd, POLLIN, 0}, {sock, POLLIN, 0}};
    for (;;) {
        const int r = ::poll(fds, forData ? 2 : 1, timeoutMs);
        if (r < 0 && errno == EINTR)
            continue;
        if (r < 0)
            return -1;
        if (fds[0].revents & POLLIN) {
            uint64_t wakes = 0;
            [[maybe_unused]] ssize_t n = ::read(wakeFd, &wakes, sizeof wakes);
            return 2;
        }
        if (r == 0)
            return 0;
        if (fds[1].revents & POLLNVAL)
            return -1;
        return 1;
    }
}

int UdpSocket::receive(char* buffer, std::size_t capacity, Datagram& out)
{
    sockaddr_in from{};
    iovec iov{buffer, capacity};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(uint32_t)) + CMSG_SPACE(sizeof(timespec)) +
                                  CMSG_SPACE(sizeof(in_pktinfo))];
    msghdr mh{};
    mh.msg_name = &from;
    mh.msg_namelen = sizeof from;
    mh.msg_iov = &iov;
    mh.msg_iovlen = 1;
    mh.msg_control = control;
    mh.msg_controllen = sizeof control;
    const ssize_t n = ::recvmsg(sock, &mh, MSG_DONTWAIT);
    if (n < 0)
        return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR ? 0 : -1;
    out = Datagram{};
    out.length = static_cast<std::size_t>(n);
    out.sender = ntohl(from.sin_addr.s_addr);
    out.senderPort = ntohs(from.sin_port);
    for (cmsghdr* c = CMSG_FIRSTHDR(&mh); c; c = CMSG_NXTHDR(&mh, c)) {
        if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SO_RXQ_OVFL) {
            std::memcpy(&out.kernelDrops, CMSG_DATA(c), sizeof out.kernelDrops);
            out.dropsKnown = true;
        } else if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_TIMESTAMPNS) {
            timespec ts{};
            std::memcpy(&ts, CMSG_DATA(c), sizeof ts);
            out.receivedNs = int64_t(ts.tv_sec) * 1000000000 + ts.tv_nsec;
        } else if (c->cmsg_level == IPPROTO_IP && c->cmsg_type == IP_PKTINFO) {
            in_pktinfo info{};
            std::memcpy(&info, CMSG_DATA(c), sizeof info);
            out.local = ntohl(info.ipi_addr.s_addr);
        }
    }
    return 1;
}

void UdpSocket::wake()
{
    if (wakeFd >= 0) {
        const uint64_t one = 1;
        [[maybe_unused]] ssize_t w = ::write(wakeFd, &one, sizeof one);
    }
}

} // namespace strmsocket
