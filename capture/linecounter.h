#pragma once
#include "capture/udpdatagram.h"
#include "scanner/messageassembler.h"

#include <cstdint>
#include <deque>
#include <vector>

namespace vxrec {

// Counts the lines of a capture as the receiver sees them when it is played:
// a raw-line message counts once all its bytes have arrived, reassembled by
// the receiver's own rules (per sender and message number, the same limits)
// on the same clock, the capture times. A line whose pieces never all arrive
// is no line here either, only an incomplete message. The index and the
// playing source both count with it, so that line n is the same line
// wherever it is reached from.
//
// For every message it completes it tells where the message's first
// datagram was in the file and when it was captured: playing from there
// gives the receiver all of the message's pieces.
//
// Ownership: owns the reassembly state and a copy of the datagram being
// looked at. Threads: one thread at a time (the index's worker, or the
// receive thread of a playing source).
class LineCounter
{
public:
    enum class Completed
    {
        Nothing,
        Line,       // a raw-line message
        FileHeader, // the device's description
        Other,      // a message of another kind
    };

    struct Result
    {
        Completed completed = Completed::Nothing;
        uint64_t firstOffset = 0; // of the completed message's first datagram seen
        int64_t firstNs = 0;      // its capture time
    };

    LineCounter();

    // Takes the next datagram of the stream.
    Result feed(const UdpDatagram& d);
    // A new place of the stream (a seek, a new pass): nothing pending is
    // joined to what follows, as the receiver forgets it too.
    void clear();
    // Messages given up incomplete so far, as the receiver counts them
    // (clear() gives up without counting); with `pending`, those still
    // waiting for pieces too (at the end of the file).
    uint64_t incompleteMessages(bool pending = false) const;

private:
    // Where a message in several datagrams began.
    struct Start
    {
        uint32_t sender = 0;
        uint32_t number = 0;
        uint64_t offset = 0;
        int64_t firstNs = 0;
        int64_t lastNs = 0;
    };
    Start* findStart(uint32_t sender, uint32_t number, int64_t timeNs);

    static constexpr std::size_t kMaxStarts = 1024;

    uint64_t nowMs = 0;
    strmsocket::MessageAssembler assembler;
    std::vector<char> bytes; // the datagram, with room behind for the assembler
    std::deque<Start> starts; // of messages in several pieces, oldest first
    uint64_t incomplete = 0;
};

} // namespace vxrec
