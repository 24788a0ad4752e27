#pragma once
#include "scanner/datagramsource.h"
#include "scanner/datagramtap.h"
#include "scanner/linerawinfo.h"
#include "scanner/pdata.h"
#include "scanner/pdatas.h"
#include "scanner/streamcounters.h"
#include "scanner/vxsheader.h"
#include "scanner/vxstreamdeviceinfo.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace strmsocket {

class ReceiveLoop;

// One UDP receiving socket plus the receive thread that owns it.
//
// Connect() binds an IPv4 UDP socket and starts the receive thread, which
// reassembles datagrams into messages (see docs/protocol.md) and dispatches
// them to the virtual callbacks, one at a time per stream object. An exception
// thrown by a callback is caught, counted and the loop goes on.
//
// Back-pressure: before each message the receive thread asks
// ReadyForMessage(). While the answer is no, it goes on reading the socket
// but keeps the complete messages undecoded, in arrival order, in a backlog
// bounded by memory (SetBacklogLimit); ResumeDelivery() makes it ask again.
// Only when the backlog is full are its oldest raw lines given up (counted as
// backlogDrops; file headers among them are applied, not dropped), and the
// newest message always gets in.
//
// Ownership: the stream owns its socket, thread and per-device file headers.
// Threads: Connect/Disconnect/destruction from one controlling thread; the
// callbacks run on the receive thread (or on the thread that calls
// DeliverMessage, for the test double); `pause`, SetTap() and counters() from
// any thread.
// Disconnect and the destructor stop and join the thread: no thread outlives
// its stream object.
class UDPLinedataStream
{
public:
    UDPLinedataStream();
    virtual ~UDPLinedataStream();
    UDPLinedataStream(const UDPLinedataStream&) = delete;
    UDPLinedataStream& operator=(const UDPLinedataStream&) = delete;

    // Binds `port` on `address` (all interfaces when empty), requests a 32 MiB
    // receive buffer and starts the receive thread. False when the port cannot
    // be bound (in use, no permission) or the stream is already connected.
    virtual bool Connect(int port, const std::string& address);
    // Starts the receive thread on another source of datagrams (a capture
    // played back): the same reassembly, backlog and callbacks as for the
    // socket. False when already connected or without a source.
    bool Connect(std::unique_ptr<DatagramSource> source);
    // Stops and joins the receive thread and closes the socket. `wait` is
    // accepted for compatibility; the call always waits for the thread.
    virtual void Disconnect(bool wait);
    // Called on the receive thread once it runs.
    virtual void OnConnected();
    // The library's handling of one raw-line message: `packet` == `info` is
    // the message, `data` the line bytes, `end` one past the message,
    // `count` the pixel count (0 for an unknown protocol), `length` the
    // message length. The default forwards to OnRawLine.
    virtual void OnRAWData(const VxStreamDeviceInfo& device, const char* packet,
                           const LineRawInfo& info, const char* data, const char* end, int count,
                           int length);
    // A file-header message: `buffer` holds `length` bytes of 12-byte entries
    // (u32 key, f64 value). The default stores them as the device's
    // VxSHeader, then calls OnRAWFileHeader.
    virtual void OnRAWFileHeaderBuf(const VxStreamDeviceInfo& device, const char* name,
                                    const char* buffer, int length);
    virtual void OnRAWFileHeader(const VxStreamDeviceInfo& device, const char* name,
                                 const VxSHeader& header);
    virtual void OnRAWCmd(const VxStreamDeviceInfo& device, const char* command);
    virtual void OnNewScanDetected();
    virtual void OnFilteredLine(const vxs::PDatas<vxs::PDataDetail>& line);
    // Once per received raw line, on the receive thread. The buffer behind
    // `info` holds at least 128 bytes, and at least 8 zero bytes follow the
    // declared line.
    virtual void OnRawLine(const VxStreamDeviceInfo& device, const char* packet,
                           const LineRawInfo& info, const char* data, int count);
    // Incomplete messages were given up (evicted or timed out).
    virtual void OnMessagesLost(int count);
    // The source started over (DatagramSource::Datagram::fresh: a capture
    // sought or played again from its start). The default forgets the
    // stored file headers, so that the lines from there on are decoded with
    // the description in force there, as when the stream is played from its
    // start up to them; an override calls it.
    virtual void OnSourceRestarted();

    // While set, raw lines are received and discarded (counted), not
    // delivered or queued; file headers are still applied.
    std::atomic<bool> pause{false};

    // Inside a callback, on the thread that delivers it: when the message
    // being delivered reached the socket (the kernel's receive time of its
    // last datagram; the time of the call for DeliverMessage).
    std::chrono::steady_clock::time_point MessageArrival() const { return messageArrival; }

    // The memory bound of the backlog of undecoded messages (their bytes).
    // Takes effect at the next Connect.
    void SetBacklogLimit(std::size_t bytes) { backlogLimit = bytes; }
    static constexpr std::size_t kDefaultBacklogLimit = std::size_t(64) << 20;

    // Hands every datagram read from now on to `tap` (see DatagramTap), or
    // to none. Any thread, connected or not; the tap stays across Connect and
    // Disconnect. Returns once a call of the previous tap in progress has
    // ended, so that it may then go.
    void SetTap(DatagramTap* tap);

    StreamCounters counters() const;
    bool IsConnected() const;
    // The bound local port (useful after Connect(0, ...)); 0 when closed.
    int LocalPort() const;

    // Dispatches one complete message as if it had arrived from `sender`:
    // the path the receive thread takes after reassembly. Used by the test
    // double. Call from one thread at a time and not while connected.
    void DeliverMessage(const VxStreamDeviceInfo& sender, const char* message, std::size_t length);

    // Devices whose file headers are kept; a header for a further device is
    // still passed to OnRAWFileHeader but not stored.
    static constexpr std::size_t kMaxStoredHeaders = 256;

protected:
    // Asked on the receive thread before each message is dispatched: whether
    // the receiver takes one now. While not, messages wait in the backlog;
    // a receiver that answers no must call ResumeDelivery() once it has
    // room again. The default always takes.
    virtual bool ReadyForMessage();
    // Makes the receive thread ask ReadyForMessage() again. Any thread; does
    // nothing while not connected.
    void ResumeDelivery();

    // The stored file header of `device`, or null. Receive thread only.
    VxSHeader* StoredHeader(unsigned device);
    // Grows by one whenever a stored file header changes. Receive thread only.
    uint64_t HeaderGeneration() const { return headerGeneration; }

private:
    friend class ReceiveLoop;
    // Dispatches one complete message. The buffer holds at least 128 bytes
    // and at least 8 zero bytes behind `length`.
    void Dispatch(const VxStreamDeviceInfo& sender, const char* message, std::size_t length);
    void DispatchRawLine(VxStreamDeviceInfo sender, const char* message, std::size_t length);
    void DispatchFileHeader(VxStreamDeviceInfo sender, const char* message, std::size_t length);

    std::unique_ptr<ReceiveLoop> loop;
    std::mutex loopLock; // guards `loop` against ResumeDelivery from other threads
    std::size_t backlogLimit = kDefaultBacklogLimit;
    std::map<unsigned, VxSHeader> headers;
    uint64_t headerGeneration = 0;
    // The tap: the flag spares the receive thread the lock while none is set;
    // the lock makes clearing wait for a call in progress.
    std::atomic<bool> tapped{false};
    std::mutex tapLock;
    DatagramTap* tap = nullptr;                           // guarded by tapLock
    std::vector<char> playBuffer;                         // DeliverMessage's padded copy, reused
    std::chrono::steady_clock::time_point messageArrival; // see MessageArrival()
    struct Counters;
    std::unique_ptr<Counters> stats;
};

} // namespace strmsocket
