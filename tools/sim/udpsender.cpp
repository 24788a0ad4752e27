#include "tools/sim/udpsender.h"

#include "scanner/wireencoder.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

namespace vxsim {

namespace {

constexpr int kSendBuffer = 8 * 1024 * 1024;
constexpr std::size_t kMaxBatch = 1024; // sendmmsg's vector limit (UIO_MAXIOV)

} // namespace

UdpSender::~UdpSender()
{
    if (fd >= 0)
        ::close(fd);
}

bool UdpSender::open(const std::string& host, int port, std::string& error)
{
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    const int rc = ::getaddrinfo(host.c_str(), nullptr, &hints, &found);
    if (rc != 0 || !found) {
        error = "cannot resolve host '" + host + "': " + ::gai_strerror(rc);
        return false;
    }
    sockaddr_in to{};
    std::memcpy(&to, found->ai_addr, std::min<std::size_t>(sizeof to, found->ai_addrlen));
    ::freeaddrinfo(found);
    to.sin_port = htons(static_cast<uint16_t>(port));

    fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        error = std::string("cannot create a UDP socket: ") + std::strerror(errno);
        return false;
    }
    // Ask for a large buffer so that a burst of fragments or a batch of
    // lines fits; the forced variant works with CAP_NET_ADMIN.
    int size = kSendBuffer;
    if (::setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &size, sizeof size) != 0)
        ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    socklen_t len = sizeof sendBuffer;
    ::getsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sendBuffer, &len);

    if (::connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) {
        error = "cannot send to " + host + ":" + std::to_string(port) + ": " + std::strerror(errno);
        ::close(fd);
        fd = -1;
        return false;
    }
    return true;
}

void UdpSender::queue(const std::vector<char>& message)
{
    auto parts = strmsocket::WireEncoder::fragment(nextNumber++, message.data(), message.size());
    if (nextNumber == 0)
        nextNumber = 1;
    for (auto& d : parts)
        pending.push_back(std::move(d));
    ++messageCount;
}

void UdpSender::flush()
{
    const std::size_t n = pending.size();
    std::vector<iovec> iov(n);
    std::vector<mmsghdr> hdr(n);
    for (std::size_t i = 0; i < n; ++i) {
        iov[i].iov_base = pending[i].data();
        iov[i].iov_len = pending[i].size();
        hdr[i] = mmsghdr{};
        hdr[i].msg_hdr.msg_iov = &iov[i];
        hdr[i].msg_hdr.msg_iovlen = 1;
    }
    std::size_t i = 0;
    while (i < n) {
        const auto batch = static_cast<unsigned>(std::min(n - i, kMaxBatch));
        const int r = ::sendmmsg(fd, &hdr[i], batch, 0);
        if (r < 0) {
            if (errno == EINTR)
                continue;
            // The datagram at i was not sent: count it and go on with the rest.
            lastErrno = errno;
            ++errorCount;
            ++i;
            continue;
        }
        for (std::size_t k = i; k < i + static_cast<std::size_t>(r); ++k) {
            ++datagramCount;
            byteCount += hdr[k].msg_len;
        }
        i += static_cast<std::size_t>(r);
    }
    pending.clear();
}

} // namespace vxsim
