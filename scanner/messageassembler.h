#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace strmsocket {

// Reassembles datagrams of the wire protocol (docs/protocol.md) into complete
// messages, per sender address and message number.
//
// Every message handed out lies in a buffer that holds at least kMinBuffer
// bytes from the message's start and at least kPadding zero bytes behind the
// message's end (all bytes past the end are zero up to that point).
//
// Limits that keep memory bounded against any stream: at most
// kMaxPendingPerSender incomplete messages per sender (the oldest is given
// up), kMaxSenders senders with incomplete messages (the least recently heard
// is given up), kMaxPendingBytes held by incomplete messages in total (the
// oldest are given up) and kMaxRanges disjoint received pieces per message.
// A message without progress for the timeout is given up as well.
//
// Ownership: owns the buffers of incomplete messages; a complete message's
// buffer stays valid until the next call of feed(), expire() or clear().
// Threads: not thread-safe; one thread (the receive thread) uses it.
class MessageAssembler
{
public:
    static constexpr std::size_t kPadding = 8;
    static constexpr std::size_t kMinBuffer = 128;
    // Room a caller's datagram buffer needs behind the datagram's bytes.
    static constexpr std::size_t kTail = kMinBuffer + kPadding;
    static constexpr std::size_t kMaxSenders = 64;
    static constexpr std::size_t kMaxPendingBytes = 256u * 1024u * 1024u;
    static constexpr std::size_t kMaxRanges = 4096;

    // Monotonic milliseconds; injectable for tests.
    using Clock = std::function<uint64_t()>;
    explicit MessageAssembler(Clock clock = Clock());
    ~MessageAssembler();
    MessageAssembler(const MessageAssembler&) = delete;
    MessageAssembler& operator=(const MessageAssembler&) = delete;

    struct Result
    {
        const char* message = nullptr; // a complete message, or null
        std::size_t length = 0;
        bool malformed = false; // the datagram was malformed
        int lost = 0;           // incomplete messages given up during the call
    };

    // Takes one datagram of `n` bytes from `sender` (an IPv4 address).
    // `buffer` must have room for `capacity` bytes; when capacity >= n + kTail
    // a message carried whole by this datagram is returned in place (the
    // bytes behind the datagram are zeroed), otherwise it is copied.
    Result feed(uint32_t sender, char* buffer, std::size_t n, std::size_t capacity);
    // Gives up messages that made no progress for the timeout; returns how
    // many. feed() does this too, at most every 100 ms.
    int expire();
    // Gives up everything pending (not counted as lost).
    void clear();

    std::size_t pendingMessages() const;
    std::size_t pendingBytes() const { return heldBytes; }

private:
    struct Pending;
    struct Sender;
    struct Datagram;

    // The two paths of feed(), once the datagram's framing has been checked.
    // A message carried whole by one datagram: handed out in place when the
    // caller left room behind the datagram, else copied.
    void deliverWhole(const Datagram& d, bool roomBehind, Result& r);
    // A piece of a message in several datagrams: startMessage() opens the
    // pending message for its first piece (giving up others to stay within
    // the limits), addFragment() copies each piece in and hands the message
    // out once every byte has arrived.
    Pending& startMessage(const Datagram& d, uint64_t t, int& lost);
    void addFragment(const Datagram& d, uint64_t t, Sender& s, Pending& p, Result& r);

    uint64_t now() const;
    Sender* findSender(uint32_t addr);
    Sender& makeSender(uint32_t addr, int& lost);
    Pending* findPending(Sender& s, uint32_t number);
    void drop(Sender& s, std::size_t index);
    int dropNumber(uint32_t addr, uint32_t number);
    void removeEmptySenders();
    bool evictOldest();
    std::unique_ptr<char[]> takeBuffer(std::size_t size, std::size_t& cap);
    void recycle(std::unique_ptr<char[]> buf, std::size_t cap);
    void releaseDelivered();

    Clock clock;
    std::vector<Sender> senders;
    std::size_t heldBytes = 0;
    uint64_t sequence = 0;
    uint64_t lastExpire = 0;
    // A message delivered from its own buffer, held until the next call.
    std::unique_ptr<char[]> delivered;
    std::size_t deliveredCap = 0;
    // Spare buffers for reuse, and the copy buffer of whole datagrams that
    // came without room behind them.
    std::vector<std::pair<std::unique_ptr<char[]>, std::size_t>> pool;
    std::vector<char> copy;
    // The last completed message of recent senders (sender, number,
    // length): a late duplicate of one of its fragments is ignored instead of
    // opening a new message that could only time out. Only the last one per
    // sender, since a sender may reuse a number for any but the next message.
    struct Done
    {
        uint32_t addr = 0, number = 0, length = 0;
    };
    Done done[16];
    std::size_t doneNext = 0;
    bool recentlyDone(uint32_t addr, uint32_t number, uint32_t length) const;
    void noteDone(uint32_t addr, uint32_t number, uint32_t length);
};

} // namespace strmsocket
