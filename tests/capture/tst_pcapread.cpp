// Reading captures down to UDP datagrams: byte orders, timestamp
// resolutions, link types, IP fragment reassembly, the kinds of
// skipped frames, damaged files, and the writer's files read back.
#include "tests/capture/capturebuilder.h"
#include "tests/check.h"

#include "capture/datagramextractor.h"
#include "capture/ipv4reassembler.h"
#include "capture/pcapwriter.h"

#include <algorithm>
#include <filesystem>
#include <tuple>

using namespace vxrec;
using B = CaptureBuilder;
using Bytes = B::Bytes;

namespace {

constexpr int64_t kT0 = 1700000000LL * 1000000000 + 123456789;

// What the extractor gives for a file; a file that does not open ends in
// an error at once.
struct Extracted
{
    std::vector<Bytes> payloads;
    std::vector<UdpDatagram> datagrams; // data pointers not valid
    SkipCounters skipped;
    DatagramExtractor::Status end = DatagramExtractor::Status::End;
    std::string error;
};

Extracted extract(const std::string& path)
{
    Extracted r;
    DatagramExtractor x({});
    const bool opened = x.open(path);
    r.end = opened ? DatagramExtractor::Status::End : DatagramExtractor::Status::Error;
    UdpDatagram d;
    while (opened && (r.end = x.next(d)) == DatagramExtractor::Status::Datagram) {
        r.payloads.emplace_back(d.data, d.data + d.length);
        r.datagrams.push_back(d);
    }
    r.skipped = x.skipped();
    r.error = x.error();
    return r;
}

Extracted extract(const Bytes& capture)
{
    B::save(vxtest::tempPath("built.cap"), capture);
    return extract(vxtest::tempPath("built.cap"));
}

// Frames in, datagrams and skip counts out, one capture per row in both
// byte orders and timestamp resolutions: link types, fragment arrival orders
// and faults, Ethernet padding, malformed and cut frames. An ordinary
// datagram after the row's frames always comes through, at its exact time.
void framesToDatagrams()
{
    const Bytes data = B::pattern(3000, 9), small = B::pattern(6, 4), after = B::pattern(10, 3);
    const auto p = B::fragments(B::udp(6101, data), 1480, 77);
    const auto q = B::fragments(B::udp(6101, data), 512, 77);       // smaller pieces
    const Bytes otherEnd = B::ipv4(Bytes(40, 0), 17, 77, 2960 / 8); // ends before p[2] does
    const Bytes good = B::ipv4(B::udp(6101, small));
    const auto with = [](Bytes b, std::size_t at, uint8_t v) {
        b[at] = v;
        return b;
    };
    const Bytes ipv6 = with(Bytes(40, 0), 0, 0x60);
    Bytes padded = B::link(1, 0x0800, good);
    padded.resize(60, 0); // minimum Ethernet frame
    const Bytes cut(padded.begin(), padded.begin() + 14 + 20 + 8 + 3);
    // An IPv6 and an IPv4 packet behind the header of a link type.
    const auto onLink = [&](uint32_t linkType, bool vlan) {
        return std::vector<Bytes>{B::link(linkType, 0x86dd, ipv6, vlan),
                                  B::link(linkType, 0x0800, good, vlan)};
    };
    const std::string unfinished = "1 unfinished fragmented datagram";
    struct Row
    {
        const char* name;
        uint32_t linkType;
        std::vector<Bytes> frames, datagrams;
        std::string skipped;
    };
    const Row rows[] = {
        {"802.1ad and 802.1Q tags", 1, onLink(1, true), {small}, "1 non-IPv4"},
        {"linux cooked v1", 113, onLink(113, false), {small}, "1 non-IPv4"},
        {"linux cooked v2", 276, onLink(276, false), {small}, "1 non-IPv4"},
        {"raw IP", 101, onLink(101, false), {small}, "1 non-IPv4"},
        {"raw IPv4", 228, onLink(228, false), {small}, "1 non-IPv4"},
        {"ethernet, padded", 1, {B::link(1, 0x86dd, ipv6), padded}, {small}, "1 non-IPv4"},
        {"not UDP", 101, {B::ipv4(Bytes(20, 0), 6)}, {}, "1 non-UDP"},
        {"other port", 101, {B::ipv4(B::udp(7000, small))}, {}, "1 other port"},
        {"fragments in order", 101, {p[0], p[1], p[2]}, {data}, "none"},
        {"fragments reversed", 101, {p[2], p[1], p[0]}, {data}, "none"},
        {"fragment overlaps", 101, {q[0], q[1], p[1], q[5], p[2], q[4], q[2]}, {data}, "none"},
        {"fragment lost in the middle", 101, {p[0], p[2]}, {}, unfinished},
        {"last fragment lost", 101, {p[0], p[1]}, {}, unfinished},
        {"two ends", 101, {p[0], p[2], otherEnd, p[1]}, {}, "1 bad fragment, " + unfinished},
        {"snap length cut", 1, {cut}, {}, "1 truncated frame"},
        {"short ethernet", 1, {Bytes(10, 0)}, {}, "1 truncated frame"},
        {"ihl below 5", 101, {with(good, 0, 0x44)}, {}, "1 bad IP header"},
        {"udp length beyond the packet", 101, {with(good, 25, 200)}, {}, "1 bad UDP header"},
    };
    for (std::size_t i = 0; i < 4 * std::size(rows); ++i) {
        const Row& row = rows[i / 4];
        const bool big = i & 2, nano = i & 1;
        vxtest::row = std::string(row.name) + (big ? " BE" : " LE") + (nano ? " ns" : " us");
        B b(big, nano, row.linkType);
        int64_t t = kT0;
        for (const Bytes& f : row.frames)
            b.add(t += 1000, f);
        b.add(t += 1000, B::link(row.linkType, 0x0800, B::ipv4(B::udp(6101, after), 17, 78)));
        const Extracted r = extract(b.bytes());
        std::vector<Bytes> expected = row.datagrams;
        expected.push_back(after);
        const int64_t unit = nano ? 1 : 1000;
        CHECK(r.payloads == expected && r.end == DatagramExtractor::Status::End);
        CHECK(!r.datagrams.empty() && r.datagrams.back().timeNs == t / unit * unit);
        CHECK_EQ(r.skipped.summary(), row.skipped);
    }
}

// Partial datagrams never pile up: a flood of first fragments stays within
// the bound, and old ones time out in capture time.
void reassemblyMemoryBound()
{
    vxtest::row = "reassembly bound";
    SkipCounters counters;
    Ipv4Reassembler r(counters, 16, 30LL * 1000000000);
    const Bytes segment = B::udp(6101, Bytes(60000, 5));
    Ipv4Reassembler::Packet out;
    for (uint16_t id = 0; id < 1000; ++id) {
        const Bytes first = B::fragments(segment, 1480, id)[0];
        r.push(kT0, first.data(), first.size(), out);
    }
    CHECK(r.pending() == 16 && r.bytesHeld() < 16 * 2048);
    CHECK_EQ(counters[SkipKind::UnfinishedFragments], 1000u - 16u);
    // 31 s later the next fragment sweeps the stale ones out.
    const Bytes frag = B::fragments(segment, 1480, 9999)[1];
    r.push(kT0 + 31LL * 1000000000, frag.data(), frag.size(), out);
    CHECK_EQ(r.pending(), std::size_t(1));
    CHECK_EQ(counters[SkipKind::UnfinishedFragments], 1000u);
}

// Damaged and unreadable files: what was read before the damage comes out,
// then an error; files that are no capture or of a link type not read do
// not open.
void damagedFiles()
{
    B b(false, true, 101);
    for (int i = 0; i < 3; ++i)
        b.add(kT0 + i, B::ipv4(B::udp(6101, Bytes(50, 1))));
    const std::string text = "hello, this is text and not a capture file at all\n";
    const std::tuple<const char*, Bytes, std::size_t> rows[] = {
        {"truncated", Bytes(b.bytes().begin(), b.bytes().end() - 20), 2},
        {"not a capture", Bytes(text.begin(), text.end()), 0},
        {"unsupported link", B(false, false, 147).bytes(), 0},
    };
    for (const auto& [name, content, datagrams] : rows) {
        vxtest::row = name;
        const Extracted r = extract(content);
        CHECK(r.end == DatagramExtractor::Status::Error && !r.error.empty());
        CHECK_EQ(r.payloads.size(), datagrams);
    }
}

// One's-complement sum of big-endian 16-bit words, folded.
uint32_t onesSum(const Bytes& b)
{
    uint32_t s = 0;
    for (std::size_t i = 0; i < b.size(); i += 2)
        s += uint32_t(b[i]) << 8 | (i + 1 < b.size() ? b[i + 1] : 0);
    while (s >> 16)
        s = (s & 0xffff) + (s >> 16);
    return s;
}

// The writer's files read back with the same addresses, ports, times and
// payloads, valid IP and UDP checksums (over a correct header, and over
// pseudo header and UDP segment, the one's-complement sum is all ones), and
// as many bytes as it counted.
void writerRoundTrip()
{
    vxtest::row = "writer round trip";
    const std::string path = vxtest::tempPath("written.pcap");
    PcapWriter w;
    CHECK(w.open(path));
    std::vector<Bytes> written;
    for (std::size_t n : {0, 1, 7, 1000, 65507}) {
        const Bytes& data = written.emplace_back(B::pattern(n, uint8_t(n)));
        const std::size_t i = written.size() - 1;
        CHECK(w.write(kT0 + int64_t(i) * 333, B::kSender + uint32_t(i), uint16_t(4000 + i),
                      B::kReceiver, 6101, data.data(), n));
        uint8_t h[28];
        PcapWriter::buildHeaders(h, 1, B::kSender, 1234, B::kReceiver, 6101, data.data(), n);
        // Addresses, UDP header, protocol and UDP length, data.
        Bytes pseudo(h + 12, h + 28);
        pseudo.insert(pseudo.end(), {0, 17, uint8_t((8 + n) >> 8), uint8_t(8 + n)});
        pseudo.insert(pseudo.end(), data.begin(), data.end());
        CHECK(onesSum(Bytes(h, h + 20)) == 0xffff && onesSum(pseudo) == 0xffff);
    }
    CHECK(!w.write(kT0, B::kSender, 1, B::kReceiver, 6101, Bytes(65508).data(), 65508));
    CHECK(w.close() && w.fileBytes() == std::filesystem::file_size(path));
    const Extracted r = extract(path);
    CHECK(r.payloads == written);
    for (std::size_t i = 0; i < r.datagrams.size(); ++i) {
        const UdpDatagram& d = r.datagrams[i];
        CHECK(d.sourcePort == 4000 + i && d.timeNs == kT0 + int64_t(i) * 333 &&
              d.source == B::kSender + i && d.destination == B::kReceiver);
    }
}

// Every datagram's offset leads back to it, in any order: in the foreign
// pcapng capture and in a pcap file of IP-fragmented datagrams.
void seekByOffset()
{
    std::vector<std::pair<std::string, uint16_t>> files{
        {VX_TEST_DATA "/foreign-udp-tcp-mixed.pcapng", 5010}};
    B b(false, true, 1);
    for (int i = 0; i < 6; ++i) {
        const Bytes segment = B::udp(6101, B::pattern(900 + 10 * std::size_t(i), uint8_t(i)));
        for (const Bytes& f : B::fragments(segment, 400, uint16_t(i + 1)))
            b.add(kT0 + i, B::link(1, 0x0800, f));
    }
    files.emplace_back(vxtest::tempPath("fragments.pcap"), 6101);
    B::save(files.back().first, b.bytes());
    for (const auto& [path, port] : files) {
        vxtest::row = "seek by offset: " + path;
        DatagramExtractor x({port, -1});
        if (!CHECK(x.open(path)))
            continue;
        std::vector<std::pair<uint64_t, Bytes>> all;
        UdpDatagram d;
        while (x.next(d) == DatagramExtractor::Status::Datagram)
            all.emplace_back(d.offset, Bytes(d.data, d.data + d.length));
        CHECK(all.size() > 5 && std::is_sorted(all.begin(), all.end()));
        for (std::size_t k : {all.size() - 1, std::size_t(0), all.size() / 2, std::size_t(1)}) {
            CHECK(x.seek(all[k].first));
            CHECK(x.next(d) == DatagramExtractor::Status::Datagram &&
                  Bytes(d.data, d.data + d.length) == all[k].second && d.offset == all[k].first);
        }
    }
}

} // namespace

int main()
{
    framesToDatagrams();
    reassemblyMemoryBound();
    damagedFiles();
    writerRoundTrip();
    seekByOffset();
    return vxtest::result("tst_pcapread");
}
