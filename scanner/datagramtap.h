#pragma once
#include "scanner/datagramsource.h"

namespace strmsocket {

// Sees every datagram a receive thread reads from its source, as it was read
// and before anything else is done with it: before reassembly, the backlog,
// the pause flag and the hand-over. What a tap sees is therefore what
// arrived, whether the viewer later shows, discards (frozen) or drops it.
//
// Set on a stream with UDPLinedataStream::SetTap. Ownership: the stream does
// not own its tap; whoever sets one clears it (SetTap(nullptr)) before the
// tap goes. Threads: onDatagram() on the receive thread, one call at a time.
// It must not block and should not allocate: it holds up the stream.
class DatagramTap
{
public:
    virtual ~DatagramTap() = default;
    // One datagram: its `d.length` payload bytes at `data`, who sent it, the
    // local address it arrived on and the kernel's receive time.
    virtual void onDatagram(const char* data, const DatagramSource::Datagram& d) = 0;
};

} // namespace strmsocket
