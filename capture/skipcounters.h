#pragma once
#include <array>
#include <cstdint>
#include <string>

namespace vxrec {

// Why a captured frame did not yield a datagram to replay.
enum class SkipKind
{
    NonIpv4,             // ARP, IPv6, LLC, ... (anything but an IPv4 packet)
    NonUdp,              // IPv4, but TCP, ICMP, ...
    OtherPort,           // UDP to another port (or from another source port)
    TruncatedFrame,      // the capture holds less than the packet (snap length)
    BadIpHeader,         // IPv4 header that contradicts itself
    BadUdpHeader,        // UDP length outside the IP payload
    BadFragment,         // IP fragment that contradicts the others of its datagram
    UnfinishedFragments, // fragmented datagrams whose fragments never all arrived
    Count_
};

// Counts of skipped frames by kind. Plain value; one thread at a time.
class SkipCounters
{
public:
    void add(SkipKind kind, uint64_t n = 1) { counts[index(kind)] += n; }
    uint64_t operator[](SkipKind kind) const { return counts[index(kind)]; }
    uint64_t total() const;
    // "3 non-IPv4, 12 other port" (kinds with a count only), or "none".
    std::string summary() const;
    static const char* name(SkipKind kind);

private:
    static std::size_t index(SkipKind k) { return static_cast<std::size_t>(k); }
    std::array<uint64_t, static_cast<std::size_t>(SkipKind::Count_)> counts{};
};

} // namespace vxrec
