#pragma once
#include "scanner/wireformat.h"
#include "tools/sim/linecomposer.h"

#include <cstddef>
#include <cstdint>
#include <functional>

namespace vxsim {

// The datagrams the simulator sends for a run of lines, handed to a sink with
// the time each is sent at instead of to a socket: a file header before every
// `headerEvery` lines, each message cut into datagrams of at most
// `maxDatagram` message bytes (by default as
// the simulator sends them), one line every `periodNs`. Tests and
// benchmarks write captures with it in-process (through a pcap writer as the
// sink), so they need no sockets.
//
// Ownership: owns its sink. Threads: one thread at a time.
class LineDatagrams
{
public:
    using Sink = std::function<void(int64_t timeNs, const char* data, std::size_t n)>;

    LineDatagrams(Sink sink, int64_t startNs, int64_t periodNs,
                  std::size_t maxDatagram = strmsocket::WireFormat::kMaxFragment,
                  int headerEvery = 100);

    // The next `count` lines as `composer` makes them, numbered on from the
    // lines given before (so several composers, one per set-up, may follow
    // each other in one stream).
    void lines(LineComposer& composer, uint64_t count);
    uint64_t linesGiven() const { return line; }

private:
    void send(const std::vector<char>& message);

    Sink sink;
    int64_t timeNs;
    const int64_t period;
    const std::size_t maxDatagram;
    const int headerEvery;
    uint32_t messageNumber = 0;
    uint64_t line = 0;
};

} // namespace vxsim
