#pragma once
#include "capture/capturerecorder.h"
#include "scanner/udpsocket.h"
#include "tools/capture/captureoptions.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace vxrec {

// Receives the datagrams of one UDP port and records each into a pcap file
// with the sender's address and port, the local address it arrived on (from
// IP_PKTINFO) and the kernel's receive time, until a limit is reached or it
// is told to stop. Its receive loop hands every datagram to a CaptureRecorder,
// the window's recorder, whose writer thread writes the file. On stopping it
// first takes what the socket has already queued (within the limits), then
// lets the recorder write everything and close the file, so that nothing
// received is lost.
//
// Ownership: owns the socket and the recorder (with its writer thread).
// Threads: open() and run() on one thread, the receive loop; `stop` may be
// set by a signal handler.
class UdpCapture
{
public:
    enum class StopReason
    {
        Count,
        Duration,
        MaxBytes,
        Stopped, // Ctrl+C / SIGTERM
        Error,
    };

    explicit UdpCapture(const CaptureOptions& options);

    // Binds the port and creates the file. False with error() on failure.
    bool open();
    int localPort() const { return boundPort; }
    StopReason run(const std::atomic<bool>& stop);

    uint64_t datagrams() const { return count; }
    uint64_t payloadBytes() const { return bytes; }
    uint64_t fileBytes() const { return recorder ? recorder->status().written : 0; }
    std::size_t senders() const { return senderSet.size(); }
    const std::string& error() const { return message; }
    static const char* describe(StopReason reason);

private:
    enum class Got
    {
        Datagram,
        Nothing,
        Error
    };
    // Reads one queued datagram without waiting and records it.
    Got receiveOne();
    bool limitReached(StopReason& reason) const;
    // The recorder's writer thread failed to write: the reason worded.
    bool writeFailed();

    const CaptureOptions& options;
    strmsocket::UdpSocket socket;
    int boundPort = 0;
    std::unique_ptr<CaptureRecorder> recorder; // from open()
    std::vector<uint8_t> buffer;
    std::set<uint64_t> senderSet;
    uint64_t count = 0;
    uint64_t bytes = 0;
    bool sizeLimitHit = false;
    int64_t deadlineNs = 0;
    std::string message;
};

} // namespace vxrec
