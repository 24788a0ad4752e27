// Reassembly of datagrams into messages: ordering, duplicates, contradicting
// fragments, timeouts via the injected clock, and the eviction limits.
#include "scanner/messageassembler.h"
#include "scanner/wireencoder.h"
#include "tests/check.h"

#include <algorithm>
#include <vector>

using strmsocket::MessageAssembler;
using strmsocket::WireEncoder;
using Datagram = std::vector<char>;

namespace {

uint64_t fakeNow = 0;

// The bytes every test message is cut from; neighbours differ.
const std::vector<char> msg = [] {
    std::vector<char> m(40000);
    for (std::size_t i = 0; i < m.size(); ++i)
        m[i] = static_cast<char>((i * 31 + 7) & 0xff);
    return m;
}();

// Fragment [offset, offset + n) of a message `length` bytes long.
Datagram piece(uint32_t number, uint32_t length, uint32_t offset, std::size_t n)
{
    return WireEncoder::datagram(number, length, offset, msg.data() + offset, n);
}

struct Feeder
{
    MessageAssembler a{[] { return fakeNow; }};
    int complete = 0, malformed = 0, lost = 0;
    std::size_t length = 0; // of the last message handed out
    // Every message handed out is the start of `msg`, zero-padded behind.
    bool intact = true;

    // `room`: leave room behind the datagram (filled with non-zero bytes).
    void feed(Datagram d, uint32_t sender = 0x7f000001, bool room = true)
    {
        const std::size_t n = d.size();
        if (room)
            d.resize(n + MessageAssembler::kTail, 'X');
        const auto r = a.feed(sender, d.data(), n, d.size());
        malformed += r.malformed;
        lost += r.lost;
        if (!r.message)
            return;
        ++complete;
        length = r.length;
        intact = intact && std::equal(r.message, r.message + r.length, msg.begin());
        const std::size_t end =
            std::max(r.length + MessageAssembler::kPadding, MessageAssembler::kMinBuffer);
        for (std::size_t i = r.length; i < end; ++i)
            intact = intact && r.message[i] == 0;
    }
};

void orderings()
{
    struct Row
    {
        const char* name;
        uint32_t length;
        std::vector<std::pair<uint32_t, std::size_t>> pieces; // offset, size; may repeat
        bool room = true;
    };
    // clang-format off
    const Row rows[] = {
        {"in order", 3000, {{0, 1000}, {1000, 1000}, {2000, 1000}}},
        {"shuffled with duplicates", 5000,
         {{3000, 1000}, {0, 1000}, {3000, 1000}, {4000, 1000}, {1000, 1000}, {0, 1000}, {2000, 1000}}},
        {"uneven last piece", 2500, {{1000, 1000}, {2000, 500}, {0, 1000}}},
        {"small message fragmented", 20, {{14, 6}, {0, 7}, {7, 7}}},
        {"overlapping", 1000, {{0, 600}, {300, 500}, {799, 201}}},
        {"late duplicate", 3000, {{0, 1000}, {1000, 1000}, {2000, 1000}, {1000, 1000}}},
        {"single datagram", 100, {{0, 100}}},
        {"single datagram without room behind", 60, {{0, 60}}, false},
    };
    // clang-format on
    Feeder f; // one for all rows: later messages reuse the buffers of earlier ones
    for (const Row& row : rows) {
        vxtest::row = row.name;
        f.complete = f.malformed = 0;
        f.intact = true;
        for (const auto& p : row.pieces)
            f.feed(piece(uint32_t(&row - rows), row.length, p.first, p.second), 1, row.room);
        CHECK(f.complete == 1 && f.malformed == 0 && f.intact && f.length == row.length);
        CHECK(f.a.pendingMessages() == 0);
    }
}

void contradictions()
{
    // Each row: a first fragment of message 5 (L = 2000) is pending, then the
    // bad datagram arrives: it is malformed and (when it names message 5)
    // drops it, so the final good fragment cannot complete anything.
    const Datagram good = piece(5, 2000, 1000, 1000);
    struct Row
    {
        const char* name;
        Datagram bad;
        int lost;
    };
    const Row rows[] = {
        {"other length", vxtest::patched(good, 8, 3000), 1},
        {"beyond length", piece(5, 2000, 1500, 600), 1},
        {"offset overflow", vxtest::patched(good, 12, 0xFFFFFF00u), 1},
        {"wrong magic", vxtest::patched(good, 0, 0x12345678), 1},
        {"no payload", piece(5, 2000, 0, 0), 1},
        {"zero length", vxtest::patched(good, 8, 0), 1},
        {"oversize length", vxtest::patched(good, 8, 16u * 1024 * 1024 + 1), 1},
        {"short datagram", Datagram(good.begin(), good.begin() + 15), 0},
        {"other message number", vxtest::patched(vxtest::patched(good, 4, 6), 0, 0), 0},
    };
    for (const Row& row : rows) {
        vxtest::row = row.name;
        Feeder f;
        f.feed(piece(5, 2000, 0, 1000));
        f.feed(row.bad);
        CHECK(f.malformed == 1 && f.lost == row.lost);
        f.feed(good);
        CHECK(f.complete == (row.lost ? 0 : 1));
    }
}

void timeout()
{
    vxtest::row = "no progress for 1 s";
    fakeNow = 10000;
    Feeder f;
    f.feed(piece(1, 3000, 0, 1000));
    fakeNow += 500;
    f.feed(piece(1, 3000, 1000, 1000)); // progress
    fakeNow += 400;
    f.feed(piece(1, 3000, 1000, 1000)); // a duplicate is no progress
    fakeNow += 599;
    CHECK(f.a.expire() == 0);
    fakeNow += 1;
    CHECK(f.a.expire() == 1 && f.a.pendingMessages() == 0 && f.a.pendingBytes() == 0);
    f.feed(piece(1, 3000, 2000, 1000)); // starts a new message that never completes
    CHECK(f.complete == 0);

    vxtest::row = "expired while datagrams keep coming";
    Feeder g;
    g.feed(piece(1, 3000, 0, 1000));
    for (uint32_t i = 0; i < 20; ++i) {
        fakeNow += 100;
        g.feed(piece(100 + i, 50, 0, 50));
    }
    CHECK(g.lost == 1 && g.complete == 20);
}

void limits()
{
    vxtest::row = "more than 8 incomplete messages per sender";
    Feeder f;
    for (uint32_t n = 0; n < 9; ++n)
        f.feed(piece(n, 2000, 0, 1000));
    CHECK(f.lost == 1 && f.a.pendingMessages() == 8);
    f.feed(piece(1, 2000, 1000, 1000));
    CHECK(f.complete == 1 && f.intact && f.length == 2000);
    f.feed(piece(0, 2000, 1000, 1000)); // the oldest: gone
    CHECK(f.complete == 1);

    vxtest::row = "messages of other senders are separate";
    Feeder g;
    g.feed(piece(7, 2000, 0, 1000), 1);
    g.feed(piece(7, 2000, 1000, 1000), 2);
    CHECK(g.complete == 0 && g.a.pendingMessages() == 2);

    vxtest::row = "sender limit";
    Feeder h;
    for (uint32_t s = 0; s <= MessageAssembler::kMaxSenders; ++s)
        h.feed(piece(1, 2000, 0, 1000), 1000 + s);
    CHECK(h.lost == 1 && h.a.pendingMessages() == MessageAssembler::kMaxSenders);

    vxtest::row = "scattered pieces";
    Feeder k;
    for (uint32_t o = 0; o + 1 < msg.size(); o += 2)
        k.feed(piece(3, uint32_t(msg.size()), o, 1));
    CHECK(k.lost >= 1); // given up each time it grows too scattered
    CHECK(k.a.pendingMessages() <= 1);
}

} // namespace

int main()
{
    orderings();
    contradictions();
    timeout();
    limits();
    return vxtest::result("tst_messageassembler");
}
