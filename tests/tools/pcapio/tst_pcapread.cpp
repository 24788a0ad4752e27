// Reading captures down to UDP datagrams: file formats and byte orders,
// timestamp resolutions, link types, IP fragment reassembly, the kinds of
// skipped frames, damaged files, and the writer's files read back.
#include "tests/check.h"
#include "tests/tools/pcapio/capturebuilder.h"

#include "tools/pcapio/datagramextractor.h"
#include "tools/pcapio/ipv4reassembler.h"
#include "tools/pcapio/pcapwriter.h"

using namespace vxrec;
using B = CaptureBuilder;
using Bytes = B::Bytes;
using Format = B::Format;

namespace {

constexpr int64_t kT0 = 1700000000LL * 1000000000 + 123456789;

struct Extracted
{
    bool opened = false;
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
    r.opened = x.open(path);
    UdpDatagram d;
    while (r.opened && (r.end = x.next(d)) == DatagramExtractor::Status::Datagram) {
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

// Every supported link type in both formats, byte orders and resolutions:
// the datagrams come out with their payloads, addresses and exact times, and
// the other frames are counted by kind.
void formatsAndLinkTypes()
{
    const std::pair<uint32_t, bool> links[] = {{1, false},   {1, true},    {113, false},
                                               {276, false}, {101, false}, {228, false}};
    Bytes ipv6(40, 0);
    ipv6[0] = 0x60;
    const Bytes first = B::pattern(100, 1), second = B::pattern(1, 2);
    const int64_t late = kT0 + 1500000000LL + 987654321;
    for (int i = 0; i < 48; ++i) {
        const uint32_t linkType = links[i / 8].first;
        const bool vlan = links[i / 8].second, pcapng = i & 4, big = i & 2, nano = i & 1;
        vxtest::row = "link " + std::to_string(linkType) + (vlan ? "+vlan" : "") +
                      (pcapng ? " pcapng" : " pcap") + (big ? " BE" : " LE") +
                      (nano ? " ns" : " us");
        const auto frame = [&](const Bytes& ip) { return B::link(linkType, 0x0800, ip, vlan); };
        B b(pcapng ? Format::Pcapng : Format::Pcap, big, nano, linkType);
        b.add(kT0, B::link(linkType, 0x86dd, ipv6, vlan));
        b.add(kT0 + 1000, frame(B::ipv4(B::udp(6101, first))));
        b.add(kT0 + 2000, frame(B::ipv4(Bytes(20, 0), 6)));
        b.add(kT0 + 3000, frame(B::ipv4(B::udp(7000, first))));
        b.add(late, frame(B::ipv4(B::udp(6101, second, 5001))));
        const Extracted r = extract(b.bytes());
        if (!CHECK(r.opened) || !CHECK_EQ(r.payloads.size(), std::size_t(2)))
            continue;
        CHECK(r.end == DatagramExtractor::Status::End);
        CHECK(r.payloads[0] == first && r.payloads[1] == second);
        const int64_t unit = nano ? 1 : 1000;
        CHECK_EQ(r.datagrams[0].timeNs, (kT0 + 1000) / unit * unit);
        CHECK_EQ(r.datagrams[1].timeNs, late / unit * unit);
        CHECK_EQ(r.datagrams[0].source, B::kSender);
        CHECK_EQ(r.datagrams[0].destination, B::kReceiver);
        CHECK_EQ(r.datagrams[1].sourcePort, 5001);
        CHECK_EQ(r.skipped[SkipKind::NonIpv4], 1u);
        CHECK_EQ(r.skipped[SkipKind::NonUdp], 1u);
        CHECK_EQ(r.skipped[SkipKind::OtherPort], 1u);
        CHECK_EQ(r.skipped.total(), 3u);
    }
}

// Frames in, datagrams and skip counts out (one capture per row): fragment
// arrival orders and faults, Ethernet padding, malformed and cut frames. An
// ordinary datagram after the row's frames always comes through.
void framesToDatagrams()
{
    const Bytes data = B::pattern(3000, 9), small = B::pattern(6, 4), after = B::pattern(10, 3);
    const auto p = B::fragments(B::udp(6101, data), 1480, 77);
    const auto q = B::fragments(B::udp(6101, data), 512, 77);       // smaller pieces
    const Bytes otherEnd = B::ipv4(Bytes(40, 0), 17, 77, 2960 / 8); // ends before p[2] does
    const Bytes good = B::ipv4(B::udp(6101, small));
    Bytes badIhl = good, udpTooLong = good, padded = B::link(1, 0x0800, good);
    badIhl[0] = 0x44;
    udpTooLong[20 + 5] = 200; // UDP length beyond the IP payload
    padded.resize(60, 0);     // minimum Ethernet frame
    const Bytes cut(padded.begin(), padded.begin() + 14 + 20 + 8 + 3);
    const std::string unfinished = "1 unfinished fragmented datagram";
    struct Row
    {
        const char* name;
        uint32_t linkType;
        std::vector<Bytes> frames;
        uint32_t cutBytes; // the frames lack as many bytes of the packet
        std::vector<Bytes> datagrams;
        std::string skipped;
    };
    const Row rows[] = {
        {"fragments in order", 101, {p[0], p[1], p[2]}, 0, {data}, "none"},
        {"fragments reversed", 101, {p[2], p[1], p[0]}, 0, {data}, "none"},
        {"fragment duplicates", 101, {p[1], p[1], p[0], p[0], p[2]}, 0, {data}, "none"},
        {"fragment overlaps", 101, {q[0], q[1], p[1], q[5], p[2], q[4], q[2]}, 0, {data}, "none"},
        {"fragment lost in the middle", 101, {p[0], p[2]}, 0, {}, unfinished},
        {"last fragment lost", 101, {p[0], p[1]}, 0, {}, unfinished},
        {"two ends", 101, {p[0], p[2], otherEnd, p[1]}, 0, {}, "1 bad fragment, " + unfinished},
        {"padded frame", 1, {padded}, 0, {small}, "none"},
        {"snap length cut", 1, {cut}, 3, {}, "1 truncated frame"},
        {"short ethernet", 1, {Bytes(10, 0)}, 0, {}, "1 truncated frame"},
        {"ihl below 5", 101, {badIhl}, 0, {}, "1 bad IP header"},
        {"udp length", 101, {udpTooLong}, 0, {}, "1 bad UDP header"},
    };
    for (const Row& row : rows) {
        vxtest::row = row.name;
        B b(Format::Pcap, false, true, row.linkType);
        int64_t t = kT0;
        for (const Bytes& f : row.frames)
            b.add(t += 1000, f, row.cutBytes ? uint32_t(f.size() + row.cutBytes) : 0);
        b.add(t + 1000, B::link(row.linkType, 0x0800, B::ipv4(B::udp(6101, after), 17, 78)));
        const Extracted r = extract(b.bytes());
        std::vector<Bytes> expected = row.datagrams;
        expected.push_back(after);
        CHECK(r.payloads == expected);
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
        CHECK(!r.push(kT0, first.data(), first.size(), out));
    }
    CHECK_EQ(r.pending(), std::size_t(16));
    CHECK(r.bytesHeld() < 16 * 2048);
    CHECK_EQ(counters[SkipKind::UnfinishedFragments], 1000u - 16u);
    // 31 s later any packet sweeps the stale ones out.
    const Bytes whole = B::ipv4(segment, 17, 4242);
    CHECK(r.push(kT0 + 31LL * 1000000000, whole.data(), whole.size(), out));
    const Bytes frag = B::fragments(segment, 1480, 9999)[1];
    r.push(kT0 + 31LL * 1000000000, frag.data(), frag.size(), out);
    CHECK_EQ(r.pending(), std::size_t(1));
    CHECK_EQ(counters[SkipKind::UnfinishedFragments], 1000u);
}

// Damaged and missing files: what was read before the damage comes out,
// then an error; unreadable files do not open.
void damagedFiles()
{
    for (Format format : {Format::Pcap, Format::Pcapng}) {
        vxtest::row = format == Format::Pcap ? "truncated pcap" : "truncated pcapng";
        B b(format, false, true, 101);
        for (int i = 0; i < 3; ++i)
            b.add(kT0 + i, B::ipv4(B::udp(6101, Bytes(50, 1))));
        const Extracted r = extract(Bytes(b.bytes().begin(), b.bytes().end() - 20));
        CHECK(r.opened);
        CHECK_EQ(r.payloads.size(), std::size_t(2));
        CHECK(r.end == DatagramExtractor::Status::Error && !r.error.empty());
    }
    const Bytes header = B(Format::Pcap, false, false, 147).bytes(); // link type not supported
    const std::string text = "hello, this is text and not a capture file at all\n";
    const std::pair<const char*, Bytes> rows[] = {
        {"header cut", Bytes(header.begin(), header.begin() + 6)},
        {"not a capture", Bytes(text.begin(), text.end())},
        {"unsupported link", header},
    };
    for (const auto& [name, content] : rows) {
        vxtest::row = name;
        const Extracted r = extract(content);
        CHECK(!r.opened && !r.error.empty());
    }
    vxtest::row = "missing";
    CHECK(!extract(vxtest::tempPath("does-not-exist.pcap")).opened);
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
// payloads, and valid IP and UDP checksums.
void writerRoundTrip()
{
    vxtest::row = "writer round trip";
    const std::size_t sizes[] = {0, 1, 7, 1472, 65507};
    const std::string path = vxtest::tempPath("written.pcap");
    PcapWriter w;
    CHECK(w.open(path));
    for (std::size_t i = 0; i < 5; ++i)
        CHECK(w.write(kT0 + int64_t(i) * 333, B::kSender + uint32_t(i), uint16_t(4000 + i),
                      B::kReceiver, 6101, B::pattern(sizes[i], uint8_t(i)).data(), sizes[i]));
    CHECK(!w.write(kT0, B::kSender, 1, B::kReceiver, 6101, Bytes(65508).data(), 65508));
    CHECK_EQ(w.fileBytes(), PcapWriter::kFileHeader + 5 * 44 + 1 + 7 + 1472 + 65507);
    CHECK(w.close());
    const Extracted r = extract(path);
    if (!CHECK_EQ(r.payloads.size(), std::size_t(5)))
        return;
    for (std::size_t i = 0; i < 5; ++i) {
        CHECK(r.payloads[i] == B::pattern(sizes[i], uint8_t(i)));
        CHECK_EQ(r.datagrams[i].timeNs, kT0 + int64_t(i) * 333);
        CHECK_EQ(r.datagrams[i].source, B::kSender + uint32_t(i));
        CHECK_EQ(r.datagrams[i].sourcePort, 4000 + i);
        CHECK_EQ(r.datagrams[i].destination, B::kReceiver);
    }
    // Over a correct header (and over pseudo header + UDP segment) the
    // one's-complement sum is all ones.
    for (std::size_t n : {0, 5, 1000}) {
        const Bytes data = B::pattern(n, 7);
        uint8_t h[28];
        PcapWriter::buildHeaders(h, 1, B::kSender, 1234, B::kReceiver, 6101, data.data(), n);
        CHECK_EQ(onesSum(Bytes(h, h + 20)), 0xffffu);
        // Addresses, UDP header, protocol and UDP length, data.
        Bytes pseudo(h + 12, h + 28);
        pseudo.insert(pseudo.end(), {0, 17, uint8_t((8 + n) >> 8), uint8_t(8 + n)});
        pseudo.insert(pseudo.end(), data.begin(), data.end());
        CHECK_EQ(onesSum(pseudo), 0xffffu);
    }
}

} // namespace

int main()
{
    formatsAndLinkTypes();
    framesToDatagrams();
    reassemblyMemoryBound();
    damagedFiles();
    writerRoundTrip();
    return vxtest::result("tst_pcapread");
}
