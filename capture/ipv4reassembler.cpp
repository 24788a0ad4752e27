#include "capture/ipv4reassembler.h"

#include "capture/netbytes.h"

#include <algorithm>
#include <cstring>

namespace vxrec {

namespace {
constexpr uint8_t kUdp = 17;
constexpr std::size_t kMaxIpPayload = 65535 - 20;
} // namespace

Ipv4Reassembler::Ipv4Reassembler(SkipCounters& counters, std::size_t maxPending, int64_t timeoutNs)
    : counters(counters), maxPending(std::max<std::size_t>(maxPending, 1)), timeoutNs(timeoutNs)
{
}

bool Ipv4Reassembler::push(int64_t timeNs, const uint8_t* ip, std::size_t captured, Packet& out,
                           uint64_t frameOffset)
{
    if (captured < 20) {
        counters.add(SkipKind::TruncatedFrame);
        return false;
    }
    const std::size_t headerLength = std::size_t(ip[0] & 0x0f) * 4;
    const std::size_t totalLength = be16(ip + 2);
    if (ip[0] >> 4 != 4 || headerLength < 20 || totalLength < headerLength) {
        counters.add(SkipKind::BadIpHeader);
        return false;
    }
    // A frame may carry padding behind the packet (short Ethernet frames):
    // the IP total length decides. Less than that means a snap length cut.
    if (captured < totalLength) {
        counters.add(SkipKind::TruncatedFrame);
        return false;
    }
    if (ip[9] != kUdp) {
        counters.add(SkipKind::NonUdp);
        return false;
    }
    const uint16_t flags = be16(ip + 6);
    const bool moreFragments = flags & 0x2000;
    const std::size_t offset = std::size_t(flags & 0x1fff) * 8;
    const uint8_t* payload = ip + headerLength;
    const std::size_t n = totalLength - headerLength;
    out.source = be32(ip + 12);
    out.destination = be32(ip + 16);
    if (!moreFragments && offset == 0) {
        out.payload = payload;
        out.length = n;
        out.firstFrame = frameOffset;
        return true;
    }

    expire(timeNs);
    const Key key{uint64_t(out.source) << 32 | out.destination, be16(ip + 4)};
    auto it = partial.find(key);
    if (it == partial.end()) {
        if (partial.size() >= maxPending)
            evictOldest();
        it = partial.emplace(key, Partial{}).first;
        it->second.order = nextOrder++;
        it->second.source = out.source;
        it->second.destination = out.destination;
    }
    Partial& p = it->second;
    p.lastNs = timeNs;
    p.firstFrame = std::min(p.firstFrame, frameOffset);
    if (!addFragment(p, offset, payload, n, !moreFragments)) {
        counters.add(SkipKind::BadFragment);
        partial.erase(it);
        return false;
    }
    if (!complete(p))
        return false;
    assembled.swap(p.data);
    assembled.resize(std::size_t(p.total));
    out.firstFrame = p.firstFrame;
    partial.erase(it);
    out.payload = assembled.data();
    out.length = assembled.size();
    return true;
}

bool Ipv4Reassembler::addFragment(Partial& p, std::size_t offset, const uint8_t* bytes,
                                  std::size_t n, bool last)
{
    const std::size_t end = offset + n;
    if (end > kMaxIpPayload || (!last && (n == 0 || n % 8 != 0)))
        return false;
    if (p.total >= 0 && end > std::size_t(p.total))
        return false; // beyond the end the last fragment announced
    if (last) {
        if (p.total >= 0 && std::size_t(p.total) != end)
            return false; // two different ends
        if (end < p.data.size() && std::any_of(p.blocks.begin() + std::ptrdiff_t((end + 7) / 8),
                                               p.blocks.end(), [](uint8_t b) { return b != 0; }))
            return false; // data already received behind the end
        p.total = static_cast<int32_t>(end);
    }
    if (p.data.size() < end) {
        p.data.resize(end);
        p.blocks.resize((end + 7) / 8);
    }
    if (n)
        std::memcpy(p.data.data() + offset, bytes, n);
    std::fill(p.blocks.begin() + std::ptrdiff_t(offset / 8),
              p.blocks.begin() + std::ptrdiff_t((end + 7) / 8), uint8_t(1));
    return true;
}

bool Ipv4Reassembler::complete(const Partial& p)
{
    if (p.total < 0)
        return false;
    const std::size_t needed = (std::size_t(p.total) + 7) / 8;
    return p.blocks.size() >= needed &&
           std::all_of(p.blocks.begin(), p.blocks.begin() + std::ptrdiff_t(needed),
                       [](uint8_t b) { return b != 0; });
}

void Ipv4Reassembler::expire(int64_t nowNs)
{
    // A sweep per second of capture time is enough for a 30 s timeout.
    if (nowNs - lastSweepNs < 1000000000 && nowNs >= lastSweepNs)
        return;
    lastSweepNs = nowNs;
    for (auto it = partial.begin(); it != partial.end();) {
        if (nowNs - it->second.lastNs > timeoutNs) {
            counters.add(SkipKind::UnfinishedFragments);
            it = partial.erase(it);
        } else {
            ++it;
        }
    }
}

void Ipv4Reassembler::evictOldest()
{
    auto oldest =
        std::min_element(partial.begin(), partial.end(), [](const auto& a, const auto& b) {
            return a.second.order < b.second.order;
        });
    if (oldest == partial.end())
        return;
    counters.add(SkipKind::UnfinishedFragments);
    partial.erase(oldest);
}

void Ipv4Reassembler::finish()
{
    counters.add(SkipKind::UnfinishedFragments, partial.size());
    partial.clear();
}

std::size_t Ipv4Reassembler::bytesHeld() const
{
    std::size_t n = 0;
    for (const auto& e : partial)
        n += e.second.data.capacity() + e.second.blocks.capacity();
    return n;
}

} // namespace vxrec
