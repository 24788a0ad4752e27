#include "scanner/udplinedatastream.h"

#include "scanner/messageassembler.h"
#include "scanner/messagebacklog.h"
#include "scanner/udpsocket.h"
#include "scanner/wireformat.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>

namespace strmsocket {

namespace {

constexpr std::size_t kReceiveBuffer = 32u * 1024u * 1024u;
constexpr int kIdlePollMs = 100;
// Datagrams read per wake-up before the stop flag is looked at again.
constexpr int kDrainBatch = 256;
// Idle polls (kIdlePollMs each) with nothing waiting before the backlog's
// spare buffers are freed.
constexpr int kTrimAfterIdlePolls = 10;

uint32_t rd32(const char* p)
{
    uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

} // namespace

struct UDPLinedataStream::Counters
{
    std::atomic<uint64_t> datagrams{0};
    std::atomic<uint64_t> bytes{0};
    std::atomic<uint64_t> messages{0};
    std::atomic<uint64_t> rawLines{0};
    std::atomic<uint64_t> pausedDiscards{0};
    std::atomic<uint64_t> malformedDatagrams{0};
    std::atomic<uint64_t> truncatedMessages{0};
    std::atomic<uint64_t> incompleteMessages{0};
    std::atomic<uint64_t> unknownKinds{0};
    std::atomic<uint64_t> callbackErrors{0};
    std::atomic<uint64_t> kernelDrops{0};
    std::atomic<uint64_t> backlogDrops{0};
    std::atomic<uint64_t> backlogMessages{0};
    std::atomic<uint64_t> backlogBytes{0};
    std::atomic<uint64_t> backlogPeakBytes{0};
    std::atomic<int64_t> receiveBufferSize{0};
    std::atomic<int> localPort{0};

    static void inc(std::atomic<uint64_t>& c, uint64_t n = 1)
    {
        c.fetch_add(n, std::memory_order_relaxed);
    }
};

// The receive thread of one stream: owns its source of datagrams (a socket,
// or another source such as a capture played back), the reassembly state and
// the receive buffer. Created by Connect, destroyed by Disconnect.
class ReceiveLoop
{
public:
    ReceiveLoop(UDPLinedataStream& s, std::size_t backlogLimit)
        : stream(s), assembler([this] { return clockMs; }), backlog(backlogLimit)
    {
    }
    ~ReceiveLoop() { stop(); }

    bool start(int port, const std::string& address)
    {
        auto own = std::make_unique<UdpSocket>();
        if (!own->open(port, address, kReceiveBuffer, true))
            return false;
        socket = own.get();
        return start(std::move(own));
    }

    bool start(std::unique_ptr<DatagramSource> from)
    {
        if (!from)
            return false;
        source = std::move(from);
        holdsBack = source->canHoldBack();
        buffer.resize(65536 + MessageAssembler::kTail);
        thread = std::thread([this] { run(); });
        return true;
    }

    void stop()
    {
        stopping.store(true, std::memory_order_release);
        if (source)
            source->wake();
        if (thread.joinable())
            thread.join();
        source.reset();
        socket = nullptr;
    }

    void wake() { source->wake(); }
    UdpSocket* socketOrNull() const { return socket; }

private:
    template <typename F> void guarded(F&& f)
    {
        try {
            f();
        } catch (...) {
            UDPLinedataStream::Counters::inc(stream.stats->callbackErrors);
        }
    }

    void lost(int n)
    {
        if (n <= 0)
            return;
        UDPLinedataStream::Counters::inc(stream.stats->incompleteMessages, uint64_t(n));
        guarded([&] { stream.OnMessagesLost(n); });
    }

    void run()
    {
        guarded([&] { stream.OnConnected(); });
        int idle = 0;
        while (!stopping.load(std::memory_order_acquire)) {
            // Messages that waited go first, while the receiver has room;
            // with more of them dispatchable, the source is only looked at.
            const bool more = pump();
            // A source that can hold back is read no further while a message
            // waits: it waits for the receiver's wake-up instead.
            const bool holding = holdsBack && !backlog.empty();
            const int w = source->wait(more ? 0 : kIdlePollMs, !holding);
            if (w < 0)
                break;
            if (w == 1)
                drain();
            if (w != 0 || more) {
                idle = 0;
                continue;
            }
            // A paused capture is no reason to give up a message in pieces:
            // its reassembly runs on capture time.
            if (!holdsBack) {
                clockMs = monotonicMs();
                lost(assembler.expire());
            }
            // A quiet second with nothing waiting: a long stall's buffers go.
            if (backlog.empty() && ++idle == kTrimAfterIdlePolls)
                backlog.trim();
        }
        assembler.clear();
    }

    void drain()
    {
        auto& st = *stream.stats;
        for (int k = 0; k < kDrainBatch && !stopping.load(std::memory_order_relaxed); ++k) {
            if (holdsBack && !backlog.empty())
                return; // the receiver has no room: the rest waits in the source
            DatagramSource::Datagram d;
            if (source->receive(buffer.data(), buffer.size() - MessageAssembler::kTail, d) <= 0)
                return; // drained; on errors, poll again
            clockMs = holdsBack ? uint64_t(d.receivedNs / 1000000) : monotonicMs();
            if (d.fresh) {
                // Another place of the stream: nothing of the old one is
                // joined to it, nor decoded with its headers. (A source that
                // holds back is only read with nothing waiting in the backlog.)
                assembler.clear();
                guarded([&] { stream.OnSourceRestarted(); });
            }
            if (d.dropsKnown)
                st.kernelDrops.store(d.kernelDrops, std::memory_order_relaxed);
            UDPLinedataStream::Counters::inc(st.datagrams);
            UDPLinedataStream::Counters::inc(st.bytes, uint64_t(d.length));
            // What arrived, before reassembly, the backlog or the pause flag
            // have a say.
            if (stream.tapped.load(std::memory_order_acquire)) {
                std::lock_guard<std::mutex> guard(stream.tapLock);
                if (stream.tap)
                    stream.tap->onDatagram(buffer.data(), d);
            }
            const MessageAssembler::Result r =
                assembler.feed(d.sender, buffer.data(), d.length, buffer.size());
            if (r.malformed)
                UDPLinedataStream::Counters::inc(st.malformedDatagrams);
            lost(r.lost);
            if (r.message) {
                if (d.sender != senderAddr || sender.ip[0] == '\0') {
                    senderAddr = d.sender;
                    const in_addr a{htonl(d.sender)};
                    inet_ntop(AF_INET, &a, sender.ip, sizeof sender.ip);
                }
                sender.port = d.senderPort;
                // A played-back datagram's time is its capture time: it
                // arrives now.
                deliver(holdsBack ? std::chrono::steady_clock::now() : arrival(d.receivedNs),
                        r.message, r.length);
            }
        }
    }

    // A complete message: dispatched now when nothing waits before it and the
    // receiver has room, else put behind the waiting ones.
    void deliver(std::chrono::steady_clock::time_point at, const char* message, std::size_t length)
    {
        if (backlog.empty() && stream.ReadyForMessage()) {
            stream.messageArrival = at;
            stream.Dispatch(sender, message, length);
            return;
        }
        auto& st = *stream.stats;
        // The backlog is full: the viewer has been behind for as long as the
        // bound holds. The oldest raw lines go; a file header among them is
        // applied instead, in its place, since the lines behind it need it.
        while (!backlog.empty() && backlog.full(length)) {
            MessageBacklog::Message& old = backlog.front();
            if (rd32(old.bytes.data()) == WireFormat::kRawLine) {
                UDPLinedataStream::Counters::inc(st.backlogDrops);
            } else {
                stream.messageArrival = old.arrival;
                stream.Dispatch(old.sender, old.bytes.data(), old.length);
            }
            backlog.pop();
        }
        backlog.push(sender, at, message, length);
        publishBacklog();
    }

    // Dispatches waiting messages, oldest first, while the receiver has room,
    // at most a batch. True when more wait and the receiver still has room.
    bool pump()
    {
        if (backlog.empty())
            return false;
        for (int k = 0; k < kDrainBatch && !backlog.empty(); ++k) {
            if (!stream.ReadyForMessage()) {
                publishBacklog();
                return false;
            }
            MessageBacklog::Message& m = backlog.front();
            stream.messageArrival = m.arrival;
            stream.Dispatch(m.sender, m.bytes.data(), m.length);
            backlog.pop();
        }
        publishBacklog();
        return !backlog.empty();
    }

    void publishBacklog()
    {
        auto& st = *stream.stats;
        st.backlogMessages.store(backlog.size(), std::memory_order_relaxed);
        st.backlogBytes.store(backlog.bytes(), std::memory_order_relaxed);
        if (backlog.bytes() > st.backlogPeakBytes.load(std::memory_order_relaxed))
            st.backlogPeakBytes.store(backlog.bytes(), std::memory_order_relaxed);
    }

    // The kernel's receive time (wall clock, 0 when unknown) on the steady
    // clock: now, less the time the datagram has waited in the socket since.
    static std::chrono::steady_clock::time_point arrival(int64_t receivedNs)
    {
        const auto now = std::chrono::steady_clock::now();
        if (receivedNs <= 0)
            return now;
        timespec wall{};
        ::clock_gettime(CLOCK_REALTIME, &wall);
        const int64_t waited = int64_t(wall.tv_sec) * 1000000000 + wall.tv_nsec - receivedNs;
        return waited > 0 ? now - std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                      std::chrono::nanoseconds(waited))
                          : now;
    }

    static uint64_t monotonicMs()
    {
        return uint64_t(std::chrono::duration_cast<std::chrono::milliseconds>(
                            std::chrono::steady_clock::now().time_since_epoch())
                            .count());
    }

    UDPLinedataStream& stream;
    std::unique_ptr<DatagramSource> source;
    UdpSocket* socket = nullptr; // the source, when it is a socket
    bool holdsBack = false;
    std::thread thread;
    std::atomic<bool> stopping{false};
    uint64_t clockMs = monotonicMs(); // the reassembly's clock: now, or capture time
    MessageAssembler assembler;
    MessageBacklog backlog;
    std::vector<char> buffer;
    VxStreamDeviceInfo sender;
    uint32_t senderAddr = 0;
};

UDPLinedataStream::UDPLinedataStream() : stats(new Counters) {}

UDPLinedataStream::~UDPLinedataStream()
{
    Disconnect(true);
}

bool UDPLinedataStream::Connect(int port, const std::string& address)
{
    if (loop)
        return false;
    std::unique_ptr<ReceiveLoop> l(new ReceiveLoop(*this, backlogLimit));
    // Under the lock before the thread starts: a ResumeDelivery() from the
    // receiver's first messages finds the loop.
    std::lock_guard<std::mutex> guard(loopLock);
    if (!l->start(port, address))
        return false;
    stats->receiveBufferSize.store(l->socketOrNull()->receiveBufferSize(),
                                   std::memory_order_relaxed);
    stats->localPort.store(l->socketOrNull()->localPort(), std::memory_order_relaxed);
    loop = std::move(l);
    return true;
}

bool UDPLinedataStream::Connect(std::unique_ptr<DatagramSource> source)
{
    if (loop)
        return false;
    std::unique_ptr<ReceiveLoop> l(new ReceiveLoop(*this, backlogLimit));
    std::lock_guard<std::mutex> guard(loopLock);
    if (!l->start(std::move(source)))
        return false;
    loop = std::move(l);
    return true;
}

void UDPLinedataStream::Disconnect(bool)
{
    if (!loop)
        return;
    loop->stop();
    {
        std::lock_guard<std::mutex> guard(loopLock);
        loop.reset();
    }
    stats->localPort.store(0, std::memory_order_relaxed);
    stats->backlogMessages.store(0, std::memory_order_relaxed);
    stats->backlogBytes.store(0, std::memory_order_relaxed);
}

void UDPLinedataStream::SetTap(DatagramTap* to)
{
    std::lock_guard<std::mutex> guard(tapLock);
    tap = to;
    tapped.store(to != nullptr, std::memory_order_release);
}

bool UDPLinedataStream::ReadyForMessage()
{
    return true;
}

void UDPLinedataStream::ResumeDelivery()
{
    std::lock_guard<std::mutex> guard(loopLock);
    if (loop)
        loop->wake();
}

bool UDPLinedataStream::IsConnected() const
{
    return loop != nullptr;
}

int UDPLinedataStream::LocalPort() const
{
    return stats->localPort.load(std::memory_order_relaxed);
}

StreamCounters UDPLinedataStream::counters() const
{
    const auto ld = [](const std::atomic<uint64_t>& a) {
        return a.load(std::memory_order_relaxed);
    };
    StreamCounters c;
    c.datagrams = ld(stats->datagrams);
    c.bytes = ld(stats->bytes);
    c.messages = ld(stats->messages);
    c.rawLines = ld(stats->rawLines);
    c.pausedDiscards = ld(stats->pausedDiscards);
    c.malformedDatagrams = ld(stats->malformedDatagrams);
    c.truncatedMessages = ld(stats->truncatedMessages);
    c.incompleteMessages = ld(stats->incompleteMessages);
    c.unknownKinds = ld(stats->unknownKinds);
    c.callbackErrors = ld(stats->callbackErrors);
    c.kernelDrops = ld(stats->kernelDrops);
    c.backlogDrops = ld(stats->backlogDrops);
    c.backlogMessages = ld(stats->backlogMessages);
    c.backlogBytes = ld(stats->backlogBytes);
    c.backlogPeakBytes = ld(stats->backlogPeakBytes);
    c.receiveBufferSize = stats->receiveBufferSize.load(std::memory_order_relaxed);
    return c;
}

void UDPLinedataStream::DeliverMessage(const VxStreamDeviceInfo& sender, const char* message,
                                       std::size_t length)
{
    // Same guarantees as the receive path: a copy with at least 128 bytes and
    // zero padding behind the message.
    const std::size_t need =
        std::max(length + MessageAssembler::kPadding, MessageAssembler::kMinBuffer);
    playBuffer.assign(need, 0);
    if (length)
        std::memcpy(playBuffer.data(), message, length);
    messageArrival = std::chrono::steady_clock::now();
    Dispatch(sender, playBuffer.data(), length);
}

void UDPLinedataStream::Dispatch(const VxStreamDeviceInfo& sender, const char* message,
                                 std::size_t length)
{
    Counters::inc(stats->messages);
    // A message shorter than its kind field reads as kind 0 from the padding.
    switch (rd32(message)) {
    case WireFormat::kRawLine:
        DispatchRawLine(sender, message, length);
        break;
    case WireFormat::kFileHeader:
        DispatchFileHeader(sender, message, length);
        break;
    default:
        Counters::inc(stats->unknownKinds);
        break;
    }
}

void UDPLinedataStream::DispatchRawLine(VxStreamDeviceInfo sender, const char* message,
                                        std::size_t length)
{
    const auto& info = *reinterpret_cast<const LineRawInfo*>(message);
    const uint32_t protocol = info.u32(8), sub = info.u32(12);
    const bool known = protocol == 1 && sub >= 1 && sub <= 3;
    const std::size_t offset =
        known && sub == 1 ? LineRawInfo::kDataOffset11 : LineRawInfo::kDataOffset12;
    int count = 0;
    if (known) {
        // The declared line must lie inside the message, so that every pixel
        // read (plus the 8 zero bytes behind) stays in the buffer.
        const int32_t lineheadersize = static_cast<int32_t>(info.word(2));
        const uint64_t bpp = info.word(3), pixel = info.word(4);
        if (lineheadersize < 0 ||
            uint64_t(offset) + uint64_t(lineheadersize) + pixel * bpp > uint64_t(length)) {
            Counters::inc(stats->truncatedMessages);
            return;
        }
        count = pixel > uint64_t(INT_MAX) ? INT_MAX : static_cast<int>(pixel);
        // Bytes behind the declared line are not part of it: the 8 that
        // follow it read as zeros even when the message goes on. The buffer
        // is the library's own (reassembly or DeliverMessage's copy), with 8
        // spare zero bytes behind the message.
        const std::size_t end = offset + std::size_t(lineheadersize) + std::size_t(pixel * bpp);
        std::memset(const_cast<char*>(message) + end, 0, 8);
    }
    if (pause.load(std::memory_order_relaxed)) {
        Counters::inc(stats->pausedDiscards);
        return;
    }
    sender.device = info.u32(16);
    Counters::inc(stats->rawLines);
    try {
        OnRAWData(sender, message, info, message + offset, message + length, count,
                  static_cast<int>(length));
    } catch (...) {
        Counters::inc(stats->callbackErrors);
    }
}

void UDPLinedataStream::DispatchFileHeader(VxStreamDeviceInfo sender, const char* message,
                                           std::size_t length)
{
    // kind, reserved, device, name length N (<= 255), name, 12-byte entries.
    const uint32_t nameLength = rd32(message + 12);
    if (length < 16 || nameLength > 255 || 16u + nameLength > length) {
        Counters::inc(stats->truncatedMessages);
        return;
    }
    sender.device = rd32(message + 8);
    const std::string name(message + 16, nameLength);
    const std::size_t entries = (length - 16 - nameLength) / 12; // a partial entry is ignored
    try {
        OnRAWFileHeaderBuf(sender, name.c_str(), message + 16 + nameLength,
                           static_cast<int>(entries * 12));
    } catch (...) {
        Counters::inc(stats->callbackErrors);
    }
}

void UDPLinedataStream::OnConnected() {}

void UDPLinedataStream::OnRAWData(const VxStreamDeviceInfo& device, const char* packet,
                                  const LineRawInfo& info, const char* data, const char*, int count,
                                  int)
{
    OnRawLine(device, packet, info, data, count);
}

void UDPLinedataStream::OnRAWFileHeaderBuf(const VxStreamDeviceInfo& device, const char* name,
                                           const char* buffer, int length)
{
    auto it = headers.find(device.device);
    VxSHeader scratch;
    VxSHeader* h = &scratch;
    if (it != headers.end())
        h = &it->second;
    else if (headers.size() < kMaxStoredHeaders)
        h = &headers[device.device];
    h->Clear();
    h->name = name ? name : "";
    h->device = device.device;
    if (buffer && length > 0) {
        // Sorted first, so that inserting stays linear for any key order; for
        // a repeated key the later entry wins (stable sort, then Set
        // overwrites).
        const std::size_t n = static_cast<std::size_t>(length) / 12;
        std::vector<std::pair<int, double>> e(n);
        for (std::size_t i = 0; i < n; ++i) {
            e[i].first = static_cast<int>(rd32(buffer + 12 * i));
            std::memcpy(&e[i].second, buffer + 12 * i + 4, sizeof(double));
        }
        std::stable_sort(e.begin(), e.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        for (const auto& kv : e)
            h->Set(kv.first, kv.second);
    }
    if (h != &scratch)
        ++headerGeneration;
    OnRAWFileHeader(device, name, *h);
}

void UDPLinedataStream::OnRAWFileHeader(const VxStreamDeviceInfo&, const char*, const VxSHeader&) {}

void UDPLinedataStream::OnRAWCmd(const VxStreamDeviceInfo&, const char*) {}

void UDPLinedataStream::OnNewScanDetected() {}

void UDPLinedataStream::OnFilteredLine(const vxs::PDatas<vxs::PDataDetail>&) {}

void UDPLinedataStream::OnRawLine(const VxStreamDeviceInfo&, const char*, const LineRawInfo&,
                                  const char*, int)
{
}

void UDPLinedataStream::OnMessagesLost(int) {}

void UDPLinedataStream::OnSourceRestarted()
{
    headers.clear();
    ++headerGeneration;
}

VxSHeader* UDPLinedataStream::StoredHeader(unsigned device)
{
    auto it = headers.find(device);
    return it == headers.end() ? nullptr : &it->second;
}

} // namespace strmsocket
