#include "tools/sim/messagesender.h"

#include "scanner/wireencoder.h"

#include <algorithm>
#include <cerrno>
#include <sys/uio.h>

namespace vxsim {

using strmsocket::UdpSocket;

namespace {

constexpr int kSendBuffer = 8 * 1024 * 1024;
constexpr std::size_t kMaxBatch = 1024; // sendmmsg's vector limit (UIO_MAXIOV)

} // namespace

bool MessageSender::open(const std::string& host, int port, std::string& error)
{
    sockaddr_in to{};
    std::string why;
    if (!UdpSocket::resolve(host, static_cast<uint16_t>(port), to, why)) {
        error = "cannot resolve host '" + host + "': " + why;
        return false;
    }
    if (!socket.open()) {
        error = UdpSocket::systemError("cannot create a UDP socket");
        return false;
    }
    // A large buffer so that a burst of fragments or a batch of lines fits.
    socket.requestSendBuffer(kSendBuffer);
    if (!socket.connect(to)) {
        error = UdpSocket::systemError("cannot send to " + host + ":" + std::to_string(port));
        socket.close();
        return false;
    }
    return true;
}

void MessageSender::queue(const std::vector<char>& message)
{
    auto parts = strmsocket::WireEncoder::fragment(nextNumber++, message.data(), message.size());
    if (nextNumber == 0)
        nextNumber = 1;
    for (auto& d : parts)
        pending.push_back(std::move(d));
    ++messageCount;
}

void MessageSender::flush()
{
    const std::size_t n = pending.size();
    iov.resize(n);
    headers.resize(n);
    for (std::size_t i = 0; i < n; ++i) {
        iov[i].iov_base = pending[i].data();
        iov[i].iov_len = pending[i].size();
        headers[i] = mmsghdr{};
        headers[i].msg_hdr.msg_iov = &iov[i];
        headers[i].msg_hdr.msg_iovlen = 1;
    }
    std::size_t i = 0;
    while (i < n) {
        const auto batch = static_cast<unsigned>(std::min(n - i, kMaxBatch));
        const int r = ::sendmmsg(socket.fd(), &headers[i], batch, 0);
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
            byteCount += headers[k].msg_len;
        }
        i += static_cast<std::size_t>(r);
    }
    pending.clear();
}

} // namespace vxsim
