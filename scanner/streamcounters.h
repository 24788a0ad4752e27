#pragma once
#include <cstdint>

namespace strmsocket {

// A snapshot of one stream's counters (see UDPLinedataStream::counters()).
struct StreamCounters
{
    uint64_t datagrams = 0;          // datagrams received on the socket
    uint64_t bytes = 0;              // their payload bytes
    uint64_t messages = 0;           // complete messages reassembled
    uint64_t rawLines = 0;           // raw lines delivered to OnRawLine
    uint64_t pausedDiscards = 0;     // raw lines discarded while paused
    uint64_t malformedDatagrams = 0; // bad magic, short, contradicting fragments
    uint64_t truncatedMessages = 0;  // raw lines whose declared line exceeds the message
    uint64_t incompleteMessages = 0; // incomplete messages given up (evicted or timed out)
    uint64_t unknownKinds = 0;       // messages of an unknown kind
    uint64_t callbackErrors = 0;     // exceptions thrown by callbacks, caught
    uint64_t kernelDrops = 0;        // datagrams the kernel dropped (SO_RXQ_OVFL)
    uint64_t backlogDrops = 0;       // raw lines given up undecoded: the backlog was full
    uint64_t backlogMessages = 0;    // messages waiting undecoded now
    uint64_t backlogBytes = 0;       // their bytes
    uint64_t backlogPeakBytes = 0;   // the most bytes that ever waited
    int64_t receiveBufferSize = 0;   // effective socket receive buffer, bytes
};

} // namespace strmsocket
