#pragma once
#include <cstddef>
#include <cstdint>

namespace strmsocket {

// Where a receive thread takes its datagrams from: a UDP socket (UdpSocket)
// or a capture played back (vxrec::CaptureSource). The receive loop waits on
// the source, reads what is ready, reassembles and dispatches it the same way
// whatever the source.
//
// A source that can hold back (a file) is read no further while the
// receiver has no room for a line: its datagrams wait where they are, so that
// none is ever dropped. A socket cannot hold back: its datagrams are read on,
// into the receive loop's bounded backlog.
//
// Ownership: the receive loop owns its source. Threads: wait() and receive()
// on the receive thread; wake() from any thread.
class DatagramSource
{
public:
    // What the source knows of one datagram.
    struct Datagram
    {
        std::size_t length = 0;
        uint32_t sender = 0; // IPv4 address, host byte order
        uint16_t senderPort = 0;
        uint32_t local = 0;     // the address it arrived on; 0 when not known
        int64_t receivedNs = 0; // when it arrived (CLOCK_REALTIME); 0 when not known
        bool dropsKnown = false;
        uint32_t kernelDrops = 0; // datagrams the socket dropped so far (SO_RXQ_OVFL)
        // The source started over with this datagram (a capture opened,
        // sought, or played again from its start): what the datagrams before
        // it set up (file headers, pieces of messages) does not hold here.
        bool fresh = false;
    };

    virtual ~DatagramSource() = default;

    // Waits up to `timeoutMs` for a datagram to be ready (with `forData`
    // false, only for a wake-up): 1 ready, 0 timed out, 2 woken by wake()
    // (the wake-up is consumed), -1 the source failed for good.
    virtual int wait(int timeoutMs, bool forData = true) = 0;
    // Reads one ready datagram into `buffer` (`capacity` bytes; a longer
    // datagram is cut) without waiting: 1 read, 0 none is ready (or a signal
    // came), -1 failed.
    virtual int receive(char* buffer, std::size_t capacity, Datagram& out) = 0;
    // Releases a wait(), or makes the next one return 2 at once.
    virtual void wake() = 0;
    // Whether datagrams can wait in the source while the receiver has none
    // of its room.
    virtual bool canHoldBack() const { return false; }
};

} // namespace strmsocket
