#include "scanner/udpsocket.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <netdb.h>
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

bool UdpSocket::resolve(const std::string& host, uint16_t port, sockaddr_in& out, std::string& why)
{
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    const int rc = ::getaddrinfo(host.c_str(), nullptr, &hints, &found);
    if (rc != 0 || !found) {
        why = ::gai_strerror(rc);
        return false;
    }
    out = sockaddr_in{};
    std::memcpy(&out, found->ai_addr, std::min<std::size_t>(sizeof out, found->ai_addrlen));
    ::freeaddrinfo(found);
    out.sin_port = htons(port);
    return true;
}

bool UdpSocket::parse(const std::string& text, uint16_t port, sockaddr_in& out)
{
    out = sockaddr_in{};
    out.sin_family = AF_INET;
    out.sin_port = htons(port);
    out.sin_addr.s_addr = htonl(INADDR_ANY);
    return text.empty() || ::inet_pton(AF_INET, text.c_str(), &out.sin_addr) == 1;
}

std::string UdpSocket::text(const sockaddr_in& address)
{
    char dotted[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &address.sin_addr, dotted, sizeof dotted);
    return std::string(dotted) + ':' + std::to_string(ntohs(address.sin_port));
}

std::string UdpSocket::systemError(const std::string& what)
{
    return what + ": " + std::strerror(errno);
}

bool UdpSocket::open()
{
    close();
    sock = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    return sock >= 0;
}

bool UdpSocket::open(int p, const std::string& address, std::size_t receiveBuffer, bool ancillary)
{
    close();
    sockaddr_in local{};
    if (p < 0 || p > 65535 || !parse(address, static_cast<uint16_t>(p), local))
        return false;
    if (!open())
        return false;
    requestReceiveBuffer(receiveBuffer > 0x7fffffff ? 0x7fffffff : static_cast<int>(receiveBuffer));
    if (ancillary) {
        set(SOL_SOCKET, SO_RXQ_OVFL, 1);
        set(SOL_SOCKET, SO_TIMESTAMPNS, 1);
        set(IPPROTO_IP, IP_PKTINFO, 1);
    }
    if (!bind(local)) {
        const int why = errno;
        close();
        errno = why;
        return false;
    }
    socklen_t len = sizeof rcvbuf;
    if (::getsockopt(sock, SOL_SOCKET, SO_RCVBUF, &rcvbuf, &len) != 0)
        rcvbuf = 0;
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
    rcvbuf = 0;
}

bool UdpSocket::set(int level, int option, int value)
{
    return ::setsockopt(sock, level, option, &value, sizeof value) == 0;
}

int UdpSocket::requestSendBuffer(int bytes)
{
    return requestBuffer(SO_SNDBUFFORCE, SO_SNDBUF, bytes);
}

int UdpSocket::requestReceiveBuffer(int bytes)
{
    return requestBuffer(SO_RCVBUFFORCE, SO_RCVBUF, bytes);
}

int UdpSocket::requestBuffer(int forced, int plain, int bytes)
{
    if (!set(SOL_SOCKET, forced, bytes))
        set(SOL_SOCKET, plain, bytes);
    int granted = 0;
    socklen_t len = sizeof granted;
    if (::getsockopt(sock, SOL_SOCKET, plain, &granted, &len) != 0)
        granted = 0;
    return granted;
}

bool UdpSocket::bind(const sockaddr_in& local)
{
    return ::bind(sock, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0;
}

bool UdpSocket::connect(const sockaddr_in& remote)
{
    return ::connect(sock, reinterpret_cast<const sockaddr*>(&remote), sizeof remote) == 0;
}

int UdpSocket::localPort() const
{
    sockaddr_in bound{};
    socklen_t len = sizeof bound;
    if (sock < 0 || ::getsockname(sock, reinterpret_cast<sockaddr*>(&bound), &len) != 0)
        return 0;
    return ntohs(bound.sin_port);
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
