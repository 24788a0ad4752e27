#include "tools/common/datagramsocket.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

namespace vxcommon {

DatagramSocket::~DatagramSocket()
{
    close();
}

bool DatagramSocket::resolve(const std::string& host, uint16_t port, sockaddr_in& out,
                             std::string& why)
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

bool DatagramSocket::parse(const std::string& text, uint16_t port, sockaddr_in& out)
{
    out = sockaddr_in{};
    out.sin_family = AF_INET;
    out.sin_port = htons(port);
    out.sin_addr.s_addr = htonl(INADDR_ANY);
    return text.empty() || ::inet_pton(AF_INET, text.c_str(), &out.sin_addr) == 1;
}

std::string DatagramSocket::text(const sockaddr_in& address)
{
    char dotted[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &address.sin_addr, dotted, sizeof dotted);
    return std::string(dotted) + ':' + std::to_string(ntohs(address.sin_port));
}

std::string DatagramSocket::systemError(const std::string& what)
{
    return what + ": " + std::strerror(errno);
}

bool DatagramSocket::open()
{
    close();
    sock = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    return sock >= 0;
}

void DatagramSocket::close()
{
    if (sock >= 0)
        ::close(sock);
    sock = -1;
}

bool DatagramSocket::set(int level, int option, int value)
{
    return ::setsockopt(sock, level, option, &value, sizeof value) == 0;
}

int DatagramSocket::requestSendBuffer(int bytes)
{
    return requestBuffer(SO_SNDBUFFORCE, SO_SNDBUF, bytes);
}

int DatagramSocket::requestReceiveBuffer(int bytes)
{
    return requestBuffer(SO_RCVBUFFORCE, SO_RCVBUF, bytes);
}

int DatagramSocket::requestBuffer(int forced, int plain, int bytes)
{
    if (!set(SOL_SOCKET, forced, bytes))
        set(SOL_SOCKET, plain, bytes);
    int granted = 0;
    socklen_t len = sizeof granted;
    if (::getsockopt(sock, SOL_SOCKET, plain, &granted, &len) != 0)
        granted = 0;
    return granted;
}

bool DatagramSocket::bind(const sockaddr_in& local)
{
    return ::bind(sock, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0;
}

bool DatagramSocket::connect(const sockaddr_in& remote)
{
    return ::connect(sock, reinterpret_cast<const sockaddr*>(&remote), sizeof remote) == 0;
}

int DatagramSocket::localPort() const
{
    sockaddr_in bound{};
    socklen_t len = sizeof bound;
    if (::getsockname(sock, reinterpret_cast<sockaddr*>(&bound), &len) != 0)
        return 0;
    return ntohs(bound.sin_port);
}

} // namespace vxcommon
