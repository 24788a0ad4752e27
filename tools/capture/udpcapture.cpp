#include "tools/capture/udpcapture.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <netinet/in.h>
#include <sys/socket.h>

namespace vxrec {

using strmsocket::UdpSocket;

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
    if (!UdpSocket::parse(options.bind, static_cast<uint16_t>(options.port), local)) {
        message = "--bind: '" + options.bind + "' is not an IPv4 address";
        return false;
    }
    // With the kernel's receive time and the local address of each datagram;
    // a large receive buffer rides out bursts.
    if (!socket.open(options.port, options.bind, 32u << 20, true)) {
        message = UdpSocket::systemError("cannot bind UDP port " + std::to_string(options.port));
        return false;
    }
    boundPort = socket.localPort();
    recorder = std::make_unique<CaptureRecorder>(static_cast<uint16_t>(boundPort));
    if (!recorder->start(options.out, CaptureWriter::Format::Pcap)) {
        message = "cannot create " + options.out + ": " + recorder->status().error;
        return false;
    }
    return true;
}

UdpCapture::Got UdpCapture::receiveOne()
{
    UdpSocket::Datagram d;
    const int got = socket.receive(reinterpret_cast<char*>(buffer.data()), buffer.size(), d);
    if (got == 0)
        return Got::Nothing;
    if (got < 0) {
        message = UdpSocket::systemError("receive failed");
        return Got::Error;
    }
    if (options.maxBytes && recorder->status().bytes + CaptureWriter::recordSize(
                                                           CaptureWriter::Format::Pcap, d.length) >
                                options.maxBytes) {
        // The datagram does not fit: the capture ends here, the file stays
        // within its limit.
        sizeLimitHit = true;
        return Got::Nothing;
    }
    // The recorder takes the receive time from the wall clock when the
    // kernel gave none.
    if (!recorder->take(reinterpret_cast<const char*>(buffer.data()), d))
        return writeFailed() ? Got::Error : Got::Datagram;
    ++count;
    bytes += d.length;
    senderSet.insert(uint64_t(d.sender) << 16 | d.senderPort);
    return Got::Datagram;
}

bool UdpCapture::writeFailed()
{
    const CaptureRecorder::Status s = recorder->status();
    if (!s.failed)
        return false;
    if (message.empty())
        message = "write failed: " + s.error;
    return true;
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
        if (writeFailed()) {
            error = true;
            break;
        }
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
        if (socket.wait(timeout) != 1)
            continue; // timeout or a signal: check the limits, the file and the flag
        // Take everything queued; the recorder's writer thread writes it.
        Got got = Got::Nothing;
        while (!limitReached(reason) && (got = receiveOne()) == Got::Datagram) {
        }
        if (got == Got::Error) {
            error = true;
            break;
        }
    }
    // Everything taken is written and the file closed; a write that failed
    // on the way is reported once.
    if (!recorder->finish() && !error) {
        writeFailed();
        error = true;
    }
    return error ? StopReason::Error : reason;
}

} // namespace vxrec
