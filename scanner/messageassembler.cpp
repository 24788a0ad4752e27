#include "scanner/messageassembler.h"

#include "scanner/tickcount.h"
#include "scanner/wireformat.h"

#include <algorithm>
#include <cstring>

namespace strmsocket {

struct MessageAssembler::Pending
{
    uint32_t number = 0;
    uint32_t length = 0;
    uint64_t received = 0;
    uint64_t lastProgress = 0;
    uint64_t seq = 0;
    std::unique_ptr<char[]> buf;
    std::size_t cap = 0;
    std::vector<std::pair<uint32_t, uint32_t>> ranges; // sorted, disjoint [begin, end)
};

struct MessageAssembler::Sender
{
    uint32_t addr = 0;
    uint64_t lastSeen = 0;
    std::vector<Pending> pending;
};

// One datagram as its framing describes it.
struct MessageAssembler::Datagram
{
    uint32_t sender = 0; // IPv4 address
    uint32_t number = 0; // of the message
    uint32_t length = 0; // of the whole message
    uint32_t offset = 0; // of this piece in the message
    char* payload = nullptr;
    std::size_t size = 0; // payload bytes
};

namespace {

constexpr std::size_t kMaxPooled = 4;
constexpr std::size_t kMaxPooledSize = 2u * 1024u * 1024u;
constexpr uint64_t kExpireEveryMs = 100;

uint32_t rd32(const char* p)
{
    uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// Adds [b, e) to the sorted disjoint ranges; returns the number of bytes
// that were not covered before.
uint64_t addRange(std::vector<std::pair<uint32_t, uint32_t>>& r, uint32_t b, uint32_t e)
{
    auto it = std::lower_bound(
        r.begin(), r.end(), b,
        [](const std::pair<uint32_t, uint32_t>& x, uint32_t v) { return x.second < v; });
    uint32_t nb = b, ne = e;
    uint64_t overlap = 0;
    auto jt = it;
    while (jt != r.end() && jt->first <= e) {
        overlap += std::min(e, jt->second) - std::max(b, jt->first);
        nb = std::min(nb, jt->first);
        ne = std::max(ne, jt->second);
        ++jt;
    }
    it = r.erase(it, jt);
    r.insert(it, {nb, ne});
    return (e - b) - overlap;
}

} // namespace

MessageAssembler::MessageAssembler(Clock c) : clock(std::move(c)) {}

MessageAssembler::~MessageAssembler() = default;

uint64_t MessageAssembler::now() const
{
    return clock ? clock() : vxtools::gettickcount();
}

std::size_t MessageAssembler::pendingMessages() const
{
    std::size_t n = 0;
    for (const Sender& s : senders)
        n += s.pending.size();
    return n;
}

MessageAssembler::Sender* MessageAssembler::findSender(uint32_t addr)
{
    for (Sender& s : senders)
        if (s.addr == addr)
            return &s;
    return nullptr;
}

MessageAssembler::Sender& MessageAssembler::makeSender(uint32_t addr, int& lost)
{
    if (Sender* s = findSender(addr))
        return *s;
    if (senders.size() >= kMaxSenders) {
        // Give up the sender heard from least recently, with all it holds.
        auto victim =
            std::min_element(senders.begin(), senders.end(), [](const Sender& a, const Sender& b) {
                return a.lastSeen < b.lastSeen;
            });
        lost += static_cast<int>(victim->pending.size());
        while (!victim->pending.empty())
            drop(*victim, victim->pending.size() - 1);
        senders.erase(victim);
    }
    senders.emplace_back();
    senders.back().addr = addr;
    return senders.back();
}

MessageAssembler::Pending* MessageAssembler::findPending(Sender& s, uint32_t number)
{
    for (Pending& p : s.pending)
        if (p.number == number)
            return &p;
    return nullptr;
}

void MessageAssembler::drop(Sender& s, std::size_t index)
{
    Pending& p = s.pending[index];
    heldBytes -= p.cap;
    recycle(std::move(p.buf), p.cap);
    s.pending.erase(s.pending.begin() + static_cast<std::ptrdiff_t>(index));
}

int MessageAssembler::dropNumber(uint32_t addr, uint32_t number)
{
    Sender* s = findSender(addr);
    if (!s)
        return 0;
    for (std::size_t i = 0; i < s->pending.size(); ++i) {
        if (s->pending[i].number == number) {
            drop(*s, i);
            removeEmptySenders();
            return 1;
        }
    }
    return 0;
}

void MessageAssembler::removeEmptySenders()
{
    senders.erase(std::remove_if(senders.begin(), senders.end(),
                                 [](const Sender& s) { return s.pending.empty(); }),
                  senders.end());
}

bool MessageAssembler::evictOldest()
{
    Sender* os = nullptr;
    std::size_t oi = 0;
    for (Sender& s : senders) {
        for (std::size_t i = 0; i < s.pending.size(); ++i) {
            if (!os || s.pending[i].seq < os->pending[oi].seq) {
                os = &s;
                oi = i;
            }
        }
    }
    if (!os)
        return false;
    drop(*os, oi);
    return true;
}

std::unique_ptr<char[]> MessageAssembler::takeBuffer(std::size_t size, std::size_t& cap)
{
    for (auto it = pool.begin(); it != pool.end(); ++it) {
        if (it->second >= size) {
            cap = it->second;
            std::unique_ptr<char[]> b = std::move(it->first);
            pool.erase(it);
            return b;
        }
    }
    cap = size;
    return std::unique_ptr<char[]>(new char[size]);
}

void MessageAssembler::recycle(std::unique_ptr<char[]> buf, std::size_t cap)
{
    if (!buf || cap > kMaxPooledSize)
        return;
    if (pool.size() >= kMaxPooled) {
        // Keep the larger buffers: they serve every smaller message too.
        auto smallest =
            std::min_element(pool.begin(), pool.end(),
                             [](const auto& a, const auto& b) { return a.second < b.second; });
        if (smallest->second >= cap)
            return;
        pool.erase(smallest);
    }
    pool.emplace_back(std::move(buf), cap);
}

void MessageAssembler::releaseDelivered()
{
    if (delivered) {
        recycle(std::move(delivered), deliveredCap);
        deliveredCap = 0;
    }
}

bool MessageAssembler::recentlyDone(uint32_t addr, uint32_t number, uint32_t length) const
{
    for (const Done& d : done)
        if (d.length && d.addr == addr && d.number == number && d.length == length)
            return true;
    return false;
}

void MessageAssembler::noteDone(uint32_t addr, uint32_t number, uint32_t length)
{
    for (Done& d : done) {
        if (d.length && d.addr == addr) {
            d.number = number;
            d.length = length;
            return;
        }
    }
    done[doneNext] = Done{addr, number, length};
    doneNext = (doneNext + 1) % (sizeof done / sizeof done[0]);
}

int MessageAssembler::expire()
{
    releaseDelivered();
    const uint64_t t = now();
    lastExpire = t;
    int lost = 0;
    for (Sender& s : senders) {
        for (std::size_t i = s.pending.size(); i-- > 0;) {
            if (t - s.pending[i].lastProgress >= uint64_t(WireFormat::kIncompleteTimeoutMs)) {
                drop(s, i);
                ++lost;
            }
        }
    }
    if (lost)
        removeEmptySenders();
    return lost;
}

void MessageAssembler::clear()
{
    releaseDelivered();
    for (Sender& s : senders)
        while (!s.pending.empty())
            drop(s, s.pending.size() - 1);
    senders.clear();
}

MessageAssembler::Result MessageAssembler::feed(uint32_t sender, char* buffer, std::size_t n,
                                                std::size_t capacity)
{
    Result r;
    releaseDelivered();
    const uint64_t t = now();
    if (!senders.empty() && t - lastExpire >= kExpireEveryMs)
        r.lost += expire();

    if (n < WireFormat::kDatagramHeader) {
        r.malformed = true;
        return r;
    }
    const Datagram d{sender,
                     rd32(buffer + 4),
                     rd32(buffer + 8),
                     rd32(buffer + 12),
                     buffer + WireFormat::kDatagramHeader,
                     n - WireFormat::kDatagramHeader};
    const bool framed = rd32(buffer) == WireFormat::kMagic && d.length != 0 &&
                        d.length <= WireFormat::kMaxMessage && d.size != 0 &&
                        uint64_t(d.offset) + d.size <= d.length;
    Sender* s = senders.empty() ? nullptr : findSender(sender);
    Pending* p = s ? findPending(*s, d.number) : nullptr;
    if (!framed || (p && p->length != d.length)) {
        // The message of that number, if any, cannot be trusted either.
        r.malformed = true;
        r.lost += dropNumber(sender, d.number);
        return r;
    }

    if (d.size == d.length) {
        if (p)
            dropNumber(sender, d.number); // completed by this datagram; nothing lost
        deliverWhole(d, capacity >= n + kTail, r);
        return r;
    }
    if (!p) {
        if (recentlyDone(sender, d.number, d.length))
            return r; // a late duplicate of a delivered message
        p = &startMessage(d, t, r.lost);
        s = findSender(sender);
    }
    addFragment(d, t, *s, *p, r);
    return r;
}

void MessageAssembler::deliverWhole(const Datagram& d, bool roomBehind, Result& r)
{
    if (roomBehind) {
        std::memset(d.payload + d.size, 0, kTail);
        r.message = d.payload;
    } else {
        copy.assign(d.size + kTail, 0);
        std::memcpy(copy.data(), d.payload, d.size);
        r.message = copy.data();
    }
    r.length = d.size;
    noteDone(d.sender, d.number, d.length);
}

MessageAssembler::Pending& MessageAssembler::startMessage(const Datagram& d, uint64_t t, int& lost)
{
    const std::size_t need = std::size_t(d.length) + kTail;
    Sender& snd = makeSender(d.sender, lost);
    if (snd.pending.size() >= WireFormat::kMaxIncompletePerSender) {
        auto oldest =
            std::min_element(snd.pending.begin(), snd.pending.end(),
                             [](const Pending& a, const Pending& b) { return a.seq < b.seq; });
        drop(snd, static_cast<std::size_t>(oldest - snd.pending.begin()));
        ++lost;
    }
    // The total held stays below the cap: give up the oldest messages of any
    // sender (never this sender's entry itself, which stays).
    while (heldBytes + need > kMaxPendingBytes && evictOldest())
        ++lost;
    Pending np;
    np.number = d.number;
    np.length = d.length;
    np.seq = ++sequence;
    np.lastProgress = t;
    np.buf = takeBuffer(need, np.cap);
    std::memset(np.buf.get() + d.length, 0, kTail);
    heldBytes += np.cap;
    snd.pending.push_back(std::move(np));
    // Evictions may have emptied other senders; removing them moves this one.
    removeEmptySenders();
    return *findPending(*findSender(d.sender), d.number);
}

void MessageAssembler::addFragment(const Datagram& d, uint64_t t, Sender& s, Pending& p, Result& r)
{
    s.lastSeen = t;
    const uint64_t fresh = addRange(p.ranges, d.offset, d.offset + static_cast<uint32_t>(d.size));
    if (fresh) {
        std::memcpy(p.buf.get() + d.offset, d.payload, d.size);
        p.received += fresh;
        p.lastProgress = t;
    }
    if (p.received == p.length) {
        delivered = std::move(p.buf);
        deliveredCap = p.cap;
        heldBytes -= p.cap;
        r.message = delivered.get();
        r.length = p.length;
        noteDone(d.sender, d.number, p.length);
        s.pending.erase(s.pending.begin() + (&p - s.pending.data()));
        removeEmptySenders();
    } else if (p.ranges.size() > kMaxRanges) {
        // Too scattered to track: give it up rather than grow without bound.
        r.lost += dropNumber(d.sender, d.number);
    }
}

} // namespace strmsocket
