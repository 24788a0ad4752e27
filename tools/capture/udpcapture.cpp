#include "tools/capture/udpcapture.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace vxrec {

using vxcommon::DatagramSocket;

namespace {

constexpr std::size_t kBufferSize = 65536; // above the largest IPv4 UDP payload
constexpr int kPollMs = 200;

int64_t clockNs(clockid_t id)
{
    timespec ts{};
    clock_gettime(id, &ts);
    return int64_t(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

} // namespace

UdpCapture::UdpCapture(const CaptureOptions& options) : options(options), buffer(kBufferSize) {}

const char* UdpCapture::describe(StopReason reason)
{
    switch (reason) {
    case StopReason::Count:
        return "datagram limit reached";
    case StopReason::Duration:
        return "duration reached";
    case StopReason::MaxBytes:
        return "file size limit reached";
    case StopReason::Stopped:
        return "stopped";
    case StopReason::Error:
        return "error";
    }
    return "?";
}

bool UdpCapture::open()
{
    sockaddr_in local{};
    if (!DatagramSocket::parse(options.bind, static_cast<uint16_t>(options.port), local)) {
        message = "--bind: '" + options.bind + "' is not an IPv4 address";
        return false;
    }
    if (!socket.open()) {
        message = DatagramSocket::systemError("cannot open a UDP socket");
        return false;
    }
    // The local address of each datagram and the kernel's receive time.
    socket.set(IPPROTO_IP, IP_PKTINFO, 1);
    socket.set(SOL_SOCKET, SO_TIMESTAMPNS, 1);
    // A large receive buffer rides out bursts while the file is written.
    socket.requestReceiveBuffer(32 << 20);
    if (!socket.bind(local)) {
        message =
            DatagramSocket::systemError("cannot bind UDP port " + std::to_string(options.port));
        return false;
    }
    boundPort = socket.localPort();
    if (!writer.open(options.out)) {
        message = writer.error();
        return false;
    }
    return true;
}

UdpCapture::Got UdpCapture::receiveOne()
{
    sockaddr_in from{};
    iovec iov{buffer.data(), buffer.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo)) + CMSG_SPACE(sizeof(timespec))];
    msghdr msg{};
    msg.msg_name = &from;
    msg.msg_namelen = sizeof from;
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof control;
    const ssize_t n = ::recvmsg(socket.fd(), &msg, MSG_DONTWAIT);
    if (n < 0) {
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)
            return Got::Nothing;
        message = DatagramSocket::systemError("receive failed");
        return Got::Error;
    }
    uint32_t localAddress = 0;
    int64_t timeNs = 0;
    for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c; c = CMSG_NXTHDR(&msg, c)) {
        if (c->cmsg_level == IPPROTO_IP && c->cmsg_type == IP_PKTINFO) {
            in_pktinfo info;
            std::memcpy(&info, CMSG_DATA(c), sizeof info);
            localAddress = ntohl(info.ipi_addr.s_addr);
        } else if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_TIMESTAMPNS) {
            timespec ts;
            std::memcpy(&ts, CMSG_DATA(c), sizeof ts);
            timeNs = int64_t(ts.tv_sec) * 1000000000 + ts.tv_nsec;
        }
    }
    if (timeNs == 0)
        timeNs = clockNs(CLOCK_REALTIME);
    const auto size = static_cast<std::size_t>(n);
    if (options.maxBytes && writer.fileBytes() + PcapWriter::recordBytes(size) > options.maxBytes) {
        // The datagram does not fit: the capture ends here, the file stays
        // within its limit.
        sizeLimitHit = true;
        return Got::Nothing;
    }
    const uint32_t source = ntohl(from.sin_addr.s_addr);
    const uint16_t sourcePort = ntohs(from.sin_port);
    if (!writer.write(timeNs, source, sourcePort, localAddress, static_cast<uint16_t>(boundPort),
                      buffer.data(), size)) {
        message = writer.error();
        return Got::Error;
    }
    ++count;
    bytes += size;
    senderSet.insert(uint64_t(source) << 16 | sourcePort);
    return Got::Datagram;
}

bool UdpCapture::limitReached(StopReason& reason) const
{
    if (options.count && count >= options.count) {
        reason = StopReason::Count;
        return true;
    }
    if (sizeLimitHit) {
        reason = StopReason::MaxBytes;
        return true;
    }
    if (deadlineNs && clockNs(CLOCK_MONOTONIC) >= deadlineNs) {
        reason = StopReason::Duration;
        return true;
    }
    return false;
}

UdpCapture::StopReason UdpCapture::run(const std::atomic<bool>& stop)
{
    if (options.duration > 0)
        deadlineNs = clockNs(CLOCK_MONOTONIC) + static_cast<int64_t>(options.duration * 1e9);
    StopReason reason = StopReason::Stopped;
    bool error = false;
    for (;;) {
        if (limitReached(reason))
            break;
        if (stop.load(std::memory_order_relaxed)) {
            // Ctrl+C: what the socket already holds was received; keep it.
            reason = StopReason::Stopped;
            Got got = Got::Nothing;
            while (!limitReached(reason) && (got = receiveOne()) == Got::Datagram) {
            }
            error = got == Got::Error;
            if (!error && reason != StopReason::Count && reason != StopReason::MaxBytes)
                reason = StopReason::Stopped;
            break;
        }
        int timeout = kPollMs;
        if (deadlineNs) {
            const int64_t left = (deadlineNs - clockNs(CLOCK_MONOTONIC)) / 1000000 + 1;
            timeout = static_cast<int>(std::max<int64_t>(0, std::min<int64_t>(timeout, left)));
        }
        pollfd p{socket.fd(), POLLIN, 0};
        if (::poll(&p, 1, timeout) <= 0)
            continue; // timeout or a signal: check the limits and the flag
        // Read everything queued, then flush once: few writes under load,
        // and nothing lingers in the buffer while the stream is idle.
        Got got = Got::Nothing;
        while (!limitReached(reason) && (got = receiveOne()) == Got::Datagram) {
        }
        if (got == Got::Error || !writer.flush()) {
            if (message.empty())
                message = writer.error();
            error = true;
            break;
        }
    }
    if (!writer.close() && !error) {
        message = writer.error();
        error = true;
    }
    return error ? StopReason::Error : reason;
}

} // namespace vxrec
