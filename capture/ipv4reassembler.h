#pragma once
#include "capture/skipcounters.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace vxrec {

// Checks IPv4 headers and reassembles IP-fragmented UDP datagrams (fragments
// in any order, duplicates and overlaps allowed). Memory stays bounded: at
// most `maxPending` datagrams are held at once (the oldest is given up first)
// and one without a new fragment for `timeoutNs` of capture time is given
// up. Packets it cannot use are counted in the SkipCounters it was given.
//
// Ownership: owns the partial datagrams and the buffer of the last complete
// one. Threads: one thread at a time.
class Ipv4Reassembler
{
public:
    struct Packet
    {
        uint32_t source = 0; // addresses in host byte order
        uint32_t destination = 0;
        const uint8_t* payload = nullptr; // the UDP header and data
        std::size_t length = 0;
        uint64_t firstFrame = 0; // file offset of its earliest fragment's frame
    };

    static constexpr std::size_t kDefaultMaxPending = 256;
    static constexpr int64_t kDefaultTimeoutNs = 30 * int64_t(1000000000);

    explicit Ipv4Reassembler(SkipCounters& counters, std::size_t maxPending = kDefaultMaxPending,
                             int64_t timeoutNs = kDefaultTimeoutNs);

    // One captured IPv4 packet. True when it completes a UDP datagram, which
    // `out` then describes (valid until the next push or finish); false when
    // the packet was skipped (and counted) or kept as a fragment.
    bool push(int64_t timeNs, const uint8_t* packet, std::size_t captured, Packet& out,
              uint64_t frameOffset = 0);
    // Gives up every partial datagram (end of the capture).
    void finish();
    // Forgets every partial datagram without counting it (the reader moved).
    void clear() { partial.clear(); }

    std::size_t pending() const { return partial.size(); }
    // Bytes held by partial datagrams.
    std::size_t bytesHeld() const;

private:
    using Key = std::pair<uint64_t, uint16_t>; // (source << 32 | destination, id)
    struct Partial
    {
        std::vector<uint8_t> data;
        std::vector<uint8_t> blocks; // 1 per received 8-byte block
        int32_t total = -1;          // payload length, once the last fragment came
        int64_t lastNs = 0;
        uint64_t order = 0;
        uint64_t firstFrame = UINT64_MAX;
        uint32_t source = 0, destination = 0;
    };
    bool addFragment(Partial& p, std::size_t offset, const uint8_t* bytes, std::size_t n,
                     bool last);
    static bool complete(const Partial& p);
    void expire(int64_t nowNs);
    void evictOldest();

    SkipCounters& counters;
    std::size_t maxPending;
    int64_t timeoutNs;
    std::map<Key, Partial> partial;
    std::vector<uint8_t> assembled;
    uint64_t nextOrder = 0;
    int64_t lastSweepNs = 0;
};

} // namespace vxrec
