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
    const uint32_t magic = rd32(buffer);
    const uint32_t number = rd32(buffer + 4);
    const uint32_t length = rd32(buffer + 8);
    const uint32_t offset = rd32(buffer + 12);
    const std::size_t payload = n - WireFormat::kDatagramHeader;
    if (magic != WireFormat::kMagic || length == 0 || length > WireFormat::kMaxMessage ||
        payload == 0 || uint64_t(offset) + payload > length) {
        r.malformed = true;
        r.lost += dropNumber(sender, number);
        return r;
    }

    Sender* s = senders.empty() ? nullptr : findSender(sender);
    Pending* p = s ? findPending(*s, number) : nullptr;
    if (p && p->length != length) {
        r.malformed = true;
        r.lost += dropNumber(sender, number);
        return r;
    }

    if (payload == length) {
        // The whole message in one datagram: hand it out without copying
        // when the caller left room behind it.
        if (p)
            dropNumber(sender, number); // completed by this datagram; nothing lost
        char* msg = buffer + WireFormat::kDatagramHeader;
        if (capacity >= n + kTail) {
            std::memset(buffer + n, 0, kTail);
        } else {
            copy.assign(payload + kTail, 0);
            std::memcpy(copy.data(), msg, payload);
            msg = copy.data();
        }
        r.message = msg;
        r.length = payload;
        noteDone(sender, number, length);
        return r;
    }

    if (!p && recentlyDone(sender, number, length))
        return r; // a late duplicate of a delivered message

    if (!p) {
        const std::size_t need = std::size_t(length) + kTail;
        Sender& snd = makeSender(sender, r.lost);
        if (snd.pending.size() >= WireFormat::kMaxIncompletePerSender) {
            auto oldest =
                std::min_element(snd.pending.begin(), snd.pending.end(),
                                 [](const Pending& a, const Pending& b) { return a.seq < b.seq; });
            drop(snd, static_cast<std::size_t>(oldest - snd.pending.begin()));
            ++r.lost;
        }
        // The total held stays below the cap: give up the oldest messages of
        // any sender (never this sender's entry itself, which stays).
        while (heldBytes + need > kMaxPendingBytes && evictOldest())
            ++r.lost;
        Pending np;
        np.number = number;
        np.length = length;
        np.seq = ++sequence;
        np.lastProgress = t;
        np.buf = takeBuffer(need, np.cap);
        std::memset(np.buf.get() + length, 0, kTail);
        heldBytes += np.cap;
        snd.pending.push_back(std::move(np));
        s = &snd;
        p = &snd.pending.back();
        removeEmptySenders();
        s = findSender(sender);
        p = findPending(*s, number);
    }
    s->lastSeen = t;

    const uint64_t fresh = addRange(p->ranges, offset, offset + static_cast<uint32_t>(payload));
    if (fresh) {
        std::memcpy(p->buf.get() + offset, buffer + WireFormat::kDatagramHeader, payload);
        p->received += fresh;
        p->lastProgress = t;
    }
    if (p->received == p->length) {
        const std::size_t idx = static_cast<std::size_t>(p - s->pending.data());
        delivered = std::move(p->buf);
        deliveredCap = p->cap;
        heldBytes -= p->cap;
        r.message = delivered.get();
        r.length = p->length;
        noteDone(sender, number, p->length);
        s->pending.erase(s->pending.begin() + static_cast<std::ptrdiff_t>(idx));
        removeEmptySenders();
    } else if (p->ranges.size() > kMaxRanges) {
        // Too scattered to track: give it up rather than grow without bound.
        r.lost += dropNumber(sender, number);
    }
    return r;
}

} // namespace strmsocket
