// Reassembly of datagrams into messages: ordering, duplicates, contradicting
// fragments, timeouts via the injected clock, and the eviction limits.
#include "check.h"
#include "scanner/messageassembler.h"
#include "scanner/wireencoder.h"

#include <algorithm>
#include <cstring>
#include <vector>

using strmsocket::MessageAssembler;
using strmsocket::WireEncoder;
using Datagram = std::vector<char>;

namespace {

uint64_t fakeNow = 0;

struct Feeder
{
    MessageAssembler a{[] { return fakeNow; }};
    int complete = 0, malformed = 0, lost = 0;
    std::vector<char> last;
    bool paddingOk = true;

    void feed(Datagram d, uint32_t sender = 0x7f000001)
    {
        d.resize(d.size() + MessageAssembler::kTail, 'X'); // room behind, not zero
        const std::size_t n = d.size() - MessageAssembler::kTail;
        const auto r = a.feed(sender, d.data(), n, d.size());
        malformed += r.malformed;
        lost += r.lost;
        if (r.message) {
            ++complete;
            last.assign(r.message, r.message + r.length);
            const std::size_t end =
                std::max(r.length + MessageAssembler::kPadding, MessageAssembler::kMinBuffer);
            for (std::size_t i = r.length; i < end; ++i)
                paddingOk = paddingOk && r.message[i] == 0;
        }
    }
};

std::vector<char> pattern(std::size_t n, int seed)
{
    std::vector<char> m(n);
    for (std::size_t i = 0; i < n; ++i)
        m[i] = static_cast<char>((i * 31 + seed) & 0xff);
    return m;
}

std::vector<Datagram> split(uint32_t number, const std::vector<char>& m, std::size_t piece)
{
    return WireEncoder::fragment(number, m.data(), m.size(), piece);
}

Datagram withField(Datagram d, std::size_t offset, uint32_t v)
{
    std::memcpy(d.data() + offset, &v, 4);
    return d;
}

void orderings()
{
    struct Row
    {
        const char* name;
        std::size_t length, piece;
        std::vector<int> order; // indices into the fragments; may repeat
    };
    const Row rows[] = {
        {"in order", 3000, 1000, {0, 1, 2}},
        {"reversed", 3000, 1000, {2, 1, 0}},
        {"shuffled with duplicates", 5000, 1000, {3, 0, 3, 4, 1, 0, 2}},
        {"uneven last piece", 2500, 1000, {1, 2, 0}},
        {"small message fragmented", 20, 7, {2, 0, 1}},
        {"single datagram", 100, 1000, {0}},
        {"late duplicate after completion", 3000, 1000, {0, 1, 2, 1}},
    };
    for (const Row& row : rows) {
        vxtest::row = row.name;
        fakeNow = 0;
        Feeder f;
        const auto msg = pattern(row.length, 7);
        const auto parts = split(42, msg, row.piece);
        for (int i : row.order)
            f.feed(parts[static_cast<std::size_t>(i)]);
        CHECK(f.complete == 1);
        CHECK(f.last == msg);
        CHECK(f.paddingOk);
        CHECK(f.malformed == 0);
        CHECK(f.a.pendingMessages() == 0);
        fakeNow = 5000;
        CHECK(f.a.expire() == 0);
    }
}

void overlappingFragments()
{
    vxtest::row = "overlapping";
    Feeder f;
    const auto msg = pattern(1000, 3);
    f.feed(WireEncoder::datagram(9, 1000, 0, msg.data(), 600));
    f.feed(WireEncoder::datagram(9, 1000, 300, msg.data() + 300, 500)); // 300..800
    CHECK(f.complete == 0);
    f.feed(WireEncoder::datagram(9, 1000, 799, msg.data() + 799, 201));
    CHECK(f.complete == 1);
    CHECK(f.last == msg);
}

void contradictions()
{
    // Each row: a first fragment of message 5 (L = 2000) is pending, then the
    // bad datagram arrives: it is malformed and (when it names message 5)
    // drops it, so the final good fragment cannot complete anything.
    const auto msg = pattern(2000, 1);
    const Datagram first = WireEncoder::datagram(5, 2000, 0, msg.data(), 1000);
    const Datagram good = WireEncoder::datagram(5, 2000, 1000, msg.data() + 1000, 1000);
    struct Row
    {
        const char* name;
        Datagram bad;
        int lost;
    };
    const Row rows[] = {
        {"other length", withField(good, 8, 3000), 1},
        {"beyond length", WireEncoder::datagram(5, 2000, 1500, msg.data(), 600), 1},
        {"offset overflow", withField(good, 12, 0xFFFFFF00u), 1},
        {"wrong magic", withField(good, 0, 0x12345678), 1},
        {"no payload", WireEncoder::datagram(5, 2000, 0, nullptr, 0), 1},
        {"zero length", withField(good, 8, 0), 1},
        {"oversize length", withField(good, 8, 16u * 1024 * 1024 + 1), 1},
        {"short datagram", Datagram(good.begin(), good.begin() + 15), 0},
        {"other message number", withField(withField(good, 4, 6), 0, 0), 0},
    };
    for (const Row& row : rows) {
        vxtest::row = row.name;
        Feeder f;
        f.feed(first);
        f.feed(row.bad);
        CHECK(f.malformed == 1);
        CHECK(f.lost == row.lost);
        f.feed(good);
        CHECK(f.complete == (row.lost ? 0 : 1));
    }
}

void timeout()
{
    vxtest::row = "no progress for 1 s";
    fakeNow = 10000;
    Feeder f;
    const auto msg = pattern(3000, 2);
    const auto parts = split(1, msg, 1000);
    f.feed(parts[0]);
    fakeNow += 900;
    f.feed(parts[0]); // a duplicate is no progress
    f.feed(parts[1]); // progress
    fakeNow += 999;
    CHECK(f.a.expire() == 0);
    fakeNow += 1;
    CHECK(f.a.expire() == 1);
    CHECK(f.a.pendingMessages() == 0);
    CHECK(f.a.pendingBytes() == 0);
    f.feed(parts[2]); // starts a new message that never completes
    CHECK(f.complete == 0);

    vxtest::row = "expired while datagrams keep coming";
    fakeNow = 0;
    Feeder g;
    g.feed(parts[0]);
    const auto other = pattern(50, 9);
    for (int i = 0; i < 20; ++i) {
        fakeNow += 100;
        g.feed(WireEncoder::datagram(100 + i, 50, 0, other.data(), 50));
    }
    CHECK(g.lost == 1);
    CHECK(g.complete == 20);
}

void limits()
{
    vxtest::row = "more than 8 incomplete messages per sender";
    Feeder f;
    const auto msg = pattern(2000, 4);
    for (uint32_t n = 0; n < 9; ++n)
        f.feed(WireEncoder::datagram(n, 2000, 0, msg.data(), 1000));
    CHECK(f.lost == 1);
    CHECK(f.a.pendingMessages() == 8);
    f.feed(WireEncoder::datagram(1, 2000, 1000, msg.data() + 1000, 1000));
    CHECK(f.complete == 1);
    CHECK(f.last == msg);
    f.feed(WireEncoder::datagram(0, 2000, 1000, msg.data() + 1000, 1000)); // the oldest: gone
    CHECK(f.complete == 1);

    vxtest::row = "messages of other senders are separate";
    Feeder g;
    g.feed(WireEncoder::datagram(7, 2000, 0, msg.data(), 1000), 1);
    g.feed(WireEncoder::datagram(7, 2000, 1000, msg.data() + 1000, 1000), 2);
    CHECK(g.complete == 0);
    CHECK(g.a.pendingMessages() == 2);

    vxtest::row = "sender limit";
    Feeder h;
    for (uint32_t s = 0; s <= MessageAssembler::kMaxSenders; ++s)
        h.feed(WireEncoder::datagram(1, 2000, 0, msg.data(), 1000), 1000 + s);
    CHECK(h.lost == 1);
    CHECK(h.a.pendingMessages() == MessageAssembler::kMaxSenders);

    vxtest::row = "scattered pieces";
    Feeder k;
    const auto big = pattern(40000, 5);
    for (std::size_t o = 0; o + 1 < big.size(); o += 2)
        k.feed(WireEncoder::datagram(3, 40000, uint32_t(o), big.data() + o, 1));
    CHECK(k.lost >= 1); // given up each time it grows too scattered
    CHECK(k.a.pendingMessages() <= 1);
}

void copiesWithoutRoom()
{
    vxtest::row = "no room behind the datagram";
    MessageAssembler a;
    const auto msg = pattern(60, 6);
    Datagram d = WireEncoder::datagram(1, 60, 0, msg.data(), 60);
    const auto r = a.feed(1, d.data(), d.size(), d.size());
    CHECK(r.message != nullptr && r.length == 60);
    CHECK(r.message && std::equal(msg.begin(), msg.end(), r.message));
    for (std::size_t i = 60; r.message && i < 128; ++i)
        CHECK(r.message[i] == 0);
}

} // namespace

int main()
{
    RUN(orderings);
    RUN(overlappingFragments);
    RUN(contradictions);
    RUN(timeout);
    RUN(limits);
    RUN(copiesWithoutRoom);
    return vxtestResult("tst_messageassembler");
}
