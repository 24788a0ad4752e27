// Reading captures down to UDP datagrams: file formats and byte orders,
// timestamp resolutions, link types, IP fragment reassembly, the kinds of
// skipped frames, damaged files, and the writer's files read back.
#include "capturebuilder.h"
#include "check.h"

#include "tools/pcapio/datagramextractor.h"
#include "tools/pcapio/ipv4reassembler.h"
#include "tools/pcapio/pcapwriter.h"

#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vector>

using namespace vxrec;
using Bytes = CaptureBuilder::Bytes;
using Format = CaptureBuilder::Format;

namespace {

constexpr uint32_t kSender = 0xc0a80064;   // 192.168.0.100
constexpr uint32_t kReceiver = 0xc0a80001; // 192.168.0.1
constexpr int64_t kT0 = 1700000000LL * 1000000000 + 123456789;

const std::string& tempDir()
{
    static const std::string dir = [] {
        char t[] = "/tmp/tst_pcapread.XXXXXX";
        return std::string(mkdtemp(t));
    }();
    return dir;
}

std::string tempPath(const char* name)
{
    return tempDir() + "/" + name;
}

struct Extracted
{
    std::vector<Bytes> payloads;
    std::vector<int64_t> times;
    std::vector<UdpDatagram> datagrams; // data pointers not valid
    SkipCounters skipped;
    DatagramExtractor::Status end = DatagramExtractor::Status::End;
    bool opened = false;
    std::string error;
};

Extracted extract(const std::string& path, DatagramExtractor::Filter filter = {})
{
    Extracted r;
    DatagramExtractor x(filter);
    r.opened = x.open(path);
    if (!r.opened) {
        r.error = x.error();
        return r;
    }
    UdpDatagram d;
    while ((r.end = x.next(d)) == DatagramExtractor::Status::Datagram) {
        r.payloads.emplace_back(d.data, d.data + d.length);
        r.times.push_back(d.timeNs);
        r.datagrams.push_back(d);
    }
    r.skipped = x.skipped();
    r.error = x.error();
    return r;
}

Extracted extract(const CaptureBuilder& b, DatagramExtractor::Filter filter = {})
{
    const std::string path = tempPath("built.cap");
    b.save(path);
    return extract(path, filter);
}

// Every supported link type in both formats, byte orders and resolutions:
// the datagrams come out with their payloads, addresses and exact times, and
// the other frames are counted by kind.
void formatsAndLinkTypes()
{
    struct Link
    {
        const char* name;
        uint32_t linkType;
        Bytes (*wrap)(uint16_t, const Bytes&);
    };
    const Link links[] = {
        {"ethernet", 1, [](uint16_t t, const Bytes& p) { return CaptureBuilder::ethernet(t, p); }},
        {"ethernet+vlan+qinq", 1,
         [](uint16_t t, const Bytes& p) {
             return CaptureBuilder::ethernet(t, p, {0x88a8, 0x8100});
         }},
        {"linux cooked", 113, CaptureBuilder::linuxCooked},
        {"linux cooked v2", 276, CaptureBuilder::linuxCooked2},
        {"raw", 101, [](uint16_t, const Bytes& p) { return p; }},
        {"ipv4", 228, [](uint16_t, const Bytes& p) { return p; }},
    };
    for (const Link& link : links)
        for (Format format : {Format::Pcap, Format::Pcapng})
            for (bool big : {false, true})
                for (bool nano : {false, true}) {
                    check::row() = std::string(link.name) +
                                   (format == Format::Pcap ? " pcap" : " pcapng") +
                                   (big ? " BE" : " LE") + (nano ? " ns" : " us");
                    CaptureBuilder b(format, big, nano, link.linkType);
                    const bool raw = link.linkType == 101 || link.linkType == 228;
                    // Not IPv4: ARP on links with a type field, IPv6 on raw links.
                    Bytes ipv6(40, 0);
                    ipv6[0] = 0x60;
                    b.add(kT0, raw ? ipv6 : link.wrap(0x0806, Bytes(28, 1)));
                    const Bytes first = CaptureBuilder::pattern(100, 1);
                    const Bytes second = CaptureBuilder::pattern(1, 2);
                    b.add(kT0 + 1000,
                          link.wrap(0x0800,
                                    CaptureBuilder::ipv4(kSender, kReceiver, 17,
                                                         CaptureBuilder::udp(5000, 6101, first))));
                    b.add(kT0 + 2000, link.wrap(0x0800, CaptureBuilder::ipv4(kSender, kReceiver, 6,
                                                                             Bytes(20, 0))));
                    b.add(kT0 + 3000,
                          link.wrap(0x0800,
                                    CaptureBuilder::ipv4(kSender, kReceiver, 17,
                                                         CaptureBuilder::udp(5000, 7000, first))));
                    const int64_t late = kT0 + 1500000000LL + 987654321;
                    b.add(late, link.wrap(0x0800, CaptureBuilder::ipv4(
                                                      kReceiver, kSender, 17,
                                                      CaptureBuilder::udp(5001, 6101, second))));
                    const Extracted r = extract(b);
                    if (!CHECK(r.opened) || !CHECK_EQ(r.payloads.size(), std::size_t(2)))
                        continue;
                    CHECK(r.end == DatagramExtractor::Status::End);
                    CHECK(r.payloads[0] == first);
                    CHECK(r.payloads[1] == second);
                    const int64_t unit = nano ? 1 : 1000;
                    CHECK_EQ(r.times[0], (kT0 + 1000) / unit * unit);
                    CHECK_EQ(r.times[1], late / unit * unit);
                    CHECK_EQ(r.datagrams[0].source, kSender);
                    CHECK_EQ(r.datagrams[0].destination, kReceiver);
                    CHECK_EQ(r.datagrams[1].sourcePort, 5001);
                    CHECK_EQ(r.skipped[SkipKind::NonIpv4], 1u);
                    CHECK_EQ(r.skipped[SkipKind::NonUdp], 1u);
                    CHECK_EQ(r.skipped[SkipKind::OtherPort], 1u);
                    CHECK_EQ(r.skipped.total(), 3u);
                }
}

// Fragment arrival orders and faults. Each row lists the fragments (by index
// into the 3-fragment split of a 3000-byte datagram) in arrival order.
void fragmentReassembly()
{
    const Bytes data = CaptureBuilder::pattern(3000, 9);
    const Bytes segment = CaptureBuilder::udp(5000, 6101, data);
    const auto parts = CaptureBuilder::fragments(kSender, kReceiver, 77, segment, 1480);
    const auto small = CaptureBuilder::fragments(kSender, kReceiver, 77, segment, 512);
    // A last fragment that ends elsewhere than the real one.
    Bytes otherEnd = CaptureBuilder::ipv4(kSender, kReceiver, 17, Bytes(40, 0), 77, 2960 / 8);
    struct Row
    {
        const char* name;
        std::vector<Bytes> arrival;
        std::size_t datagrams;
        uint64_t unfinished, bad;
    };
    const Row rows[] = {
        {"in order", {parts[0], parts[1], parts[2]}, 1, 0, 0},
        {"reversed", {parts[2], parts[1], parts[0]}, 1, 0, 0},
        {"duplicates", {parts[1], parts[1], parts[0], parts[0], parts[2]}, 1, 0, 0},
        {"overlaps",
         {small[0], small[1], parts[1], small[5], parts[2], small[4], small[2]},
         1,
         0,
         0},
        {"lost middle", {parts[0], parts[2]}, 0, 1, 0},
        {"lost last", {parts[0], parts[1]}, 0, 1, 0},
        {"two ends", {parts[0], parts[2], otherEnd, parts[1]}, 0, 1, 1},
    };
    for (const Row& row : rows) {
        check::row() = std::string("fragments ") + row.name;
        CaptureBuilder b(Format::Pcap, false, true, 101);
        int64_t t = kT0;
        for (const Bytes& f : row.arrival)
            b.add(t += 1000, f);
        // An ordinary datagram afterwards still comes through.
        const Bytes after = CaptureBuilder::pattern(10, 3);
        b.add(t + 1000, CaptureBuilder::ipv4(kSender, kReceiver, 17,
                                             CaptureBuilder::udp(5000, 6101, after), 78));
        const Extracted r = extract(b);
        if (!CHECK_EQ(r.payloads.size(), row.datagrams + 1))
            continue;
        if (row.datagrams)
            CHECK(r.payloads[0] == data);
        CHECK(r.payloads.back() == after);
        CHECK_EQ(r.skipped[SkipKind::UnfinishedFragments], row.unfinished);
        CHECK_EQ(r.skipped[SkipKind::BadFragment], row.bad);
    }
}

// Partial datagrams never pile up: a flood of first fragments stays within
// the bound, and old ones time out in capture time.
void reassemblyMemoryBound()
{
    check::row() = "reassembly bound";
    SkipCounters counters;
    Ipv4Reassembler r(counters, 16, 30LL * 1000000000);
    const Bytes segment = CaptureBuilder::udp(1, 6101, Bytes(60000, 5));
    Ipv4Reassembler::Packet out;
    for (uint16_t id = 0; id < 1000; ++id) {
        const Bytes first = CaptureBuilder::fragments(kSender, kReceiver, id, segment, 1480)[0];
        CHECK(!r.push(kT0, first.data(), first.size(), out));
    }
    CHECK_EQ(r.pending(), std::size_t(16));
    CHECK(r.bytesHeld() < 16 * 2048);
    CHECK_EQ(counters[SkipKind::UnfinishedFragments], 1000u - 16u);
    // 31 s later any packet sweeps the stale ones out.
    const Bytes whole = CaptureBuilder::ipv4(kSender, kReceiver, 17, segment, 4242);
    CHECK(r.push(kT0 + 31LL * 1000000000, whole.data(), whole.size(), out));
    const Bytes frag = CaptureBuilder::fragments(kSender, kReceiver, 9999, segment, 1480)[1];
    r.push(kT0 + 31LL * 1000000000, frag.data(), frag.size(), out);
    CHECK_EQ(r.pending(), std::size_t(1));
    CHECK_EQ(counters[SkipKind::UnfinishedFragments], 1000u);
}

// Malformed and cut frames are counted by kind; Ethernet padding is not
// taken for data.
void skipKinds()
{
    const Bytes data = CaptureBuilder::pattern(6, 4);
    const Bytes good =
        CaptureBuilder::ipv4(kSender, kReceiver, 17, CaptureBuilder::udp(1, 6101, data));
    Bytes badIhl = good;
    badIhl[0] = 0x44;
    Bytes udpTooLong = good;
    udpTooLong[20 + 5] = 200; // UDP length beyond the IP payload
    Bytes padded = CaptureBuilder::ethernet(0x0800, good);
    padded.resize(60, 0); // minimum Ethernet frame
    Bytes cut = CaptureBuilder::ethernet(0x0800, good);
    cut.resize(cut.size() - 3);
    struct Row
    {
        const char* name;
        Bytes frame;
        uint32_t originalLength;
        SkipKind kind;
        bool passes;
    };
    const Row rows[] = {
        {"padded frame", padded, 0, SkipKind::Count_, true},
        {"snap length cut", cut, uint32_t(cut.size() + 3), SkipKind::TruncatedFrame, false},
        {"short ethernet", Bytes(10, 0), 0, SkipKind::TruncatedFrame, false},
        {"ihl below 5", CaptureBuilder::ethernet(0x0800, badIhl), 0, SkipKind::BadIpHeader, false},
        {"udp length", CaptureBuilder::ethernet(0x0800, udpTooLong), 0, SkipKind::BadUdpHeader,
         false},
        {"ipv6", CaptureBuilder::ethernet(0x86dd, Bytes(40, 0)), 0, SkipKind::NonIpv4, false},
    };
    for (const Row& row : rows) {
        check::row() = row.name;
        CaptureBuilder b(Format::Pcapng, false, false, 1);
        b.add(kT0, row.frame, row.originalLength);
        const Extracted r = extract(b);
        CHECK_EQ(r.payloads.size(), std::size_t(row.passes ? 1 : 0));
        if (row.passes)
            CHECK(r.payloads[0] == data);
        else
            CHECK_EQ(r.skipped[row.kind], 1u);
    }
}

// Damaged and missing files: what was read before the damage comes out,
// then an error; unreadable files do not open.
void damagedFiles()
{
    for (Format format : {Format::Pcap, Format::Pcapng}) {
        check::row() = format == Format::Pcap ? "truncated pcap" : "truncated pcapng";
        CaptureBuilder b(format, false, true, 101);
        for (int i = 0; i < 3; ++i)
            b.add(kT0 + i, CaptureBuilder::ipv4(kSender, kReceiver, 17,
                                                CaptureBuilder::udp(1, 6101, Bytes(50, 1))));
        Bytes bytes = b.bytes();
        bytes.resize(bytes.size() - 20);
        const std::string path = tempPath("truncated.cap");
        std::FILE* f = std::fopen(path.c_str(), "wb");
        std::fwrite(bytes.data(), 1, bytes.size(), f);
        std::fclose(f);
        const Extracted r = extract(path);
        CHECK(r.opened);
        CHECK_EQ(r.payloads.size(), std::size_t(2));
        CHECK(r.end == DatagramExtractor::Status::Error);
        CHECK(!r.error.empty());
    }
    struct Row
    {
        const char* name;
        std::string content;
    };
    const Row rows[] = {
        {"header cut", std::string("\xd4\xc3\xb2\xa1\x02\x00", 6)},
        {"not a capture", "hello, this is text and not a capture file at all\n"},
        {"unsupported link", std::string("\xd4\xc3\xb2\xa1\x02\x00\x04\x00\0\0\0\0\0\0\0\0"
                                         "\xff\xff\0\0\x93\0\0\0",
                                         24)},
    };
    for (const Row& row : rows) {
        check::row() = row.name;
        const std::string path = tempPath("bad.cap");
        std::FILE* f = std::fopen(path.c_str(), "wb");
        std::fwrite(row.content.data(), 1, row.content.size(), f);
        std::fclose(f);
        const Extracted r = extract(path);
        CHECK(!r.opened);
        CHECK(!r.error.empty());
    }
    check::row() = "missing";
    CHECK(!extract(tempPath("does-not-exist.pcap")).opened);
}

// The writer's files read back with the same addresses, ports, times and
// payloads, and valid IP and UDP checksums.
void writerRoundTrip()
{
    check::row() = "writer round trip";
    const std::vector<std::size_t> sizes = {0, 1, 7, 1472, 65507};
    const std::string path = tempPath("written.pcap");
    PcapWriter w;
    CHECK(w.open(path));
    for (std::size_t i = 0; i < sizes.size(); ++i)
        CHECK(w.write(kT0 + int64_t(i) * 333, kSender + uint32_t(i), uint16_t(4000 + i), kReceiver,
                      6101, CaptureBuilder::pattern(sizes[i], uint8_t(i)).data(), sizes[i]));
    CHECK(!w.write(kT0, kSender, 1, kReceiver, 6101, Bytes(65508).data(), 65508));
    const uint64_t expected = PcapWriter::kFileHeader + 5 * 44 + 1 + 7 + 1472 + 65507;
    CHECK_EQ(w.fileBytes(), expected);
    CHECK(w.close());
    const Extracted r = extract(path);
    if (!CHECK_EQ(r.payloads.size(), sizes.size()))
        return;
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        CHECK(r.payloads[i] == CaptureBuilder::pattern(sizes[i], uint8_t(i)));
        CHECK_EQ(r.times[i], kT0 + int64_t(i) * 333);
        CHECK_EQ(r.datagrams[i].source, kSender + uint32_t(i));
        CHECK_EQ(r.datagrams[i].sourcePort, 4000 + i);
        CHECK_EQ(r.datagrams[i].destination, kReceiver);
    }
    // Checksums: the one's-complement sum over a correct header (and over
    // pseudo header + UDP segment) is all ones.
    for (std::size_t n : {std::size_t(0), std::size_t(5), std::size_t(1000)}) {
        const Bytes data = CaptureBuilder::pattern(n, 7);
        uint8_t h[28];
        PcapWriter::buildHeaders(h, 1, kSender, 1234, kReceiver, 6101, data.data(), n);
        uint32_t ip = 0;
        for (int i = 0; i < 20; i += 2)
            ip += uint32_t(h[i]) << 8 | h[i + 1];
        while (ip >> 16)
            ip = (ip & 0xffff) + (ip >> 16);
        CHECK_EQ(ip, 0xffffu);
        Bytes seg(h + 20, h + 28);
        seg.insert(seg.end(), data.begin(), data.end());
        if (seg.size() % 2)
            seg.push_back(0);
        uint32_t udp = 17 + uint32_t(8 + n);
        for (int i = 12; i < 20; i += 2)
            udp += uint32_t(h[i]) << 8 | h[i + 1];
        for (std::size_t i = 0; i < seg.size(); i += 2)
            udp += uint32_t(seg[i]) << 8 | seg[i + 1];
        while (udp >> 16)
            udp = (udp & 0xffff) + (udp >> 16);
        CHECK_EQ(udp, 0xffffu);
    }
}

} // namespace

int main()
{
    formatsAndLinkTypes();
    fragmentReassembly();
    reassemblyMemoryBound();
    skipKinds();
    damagedFiles();
    writerRoundTrip();
    for (const char* f : {"built.cap", "truncated.cap", "bad.cap", "written.pcap"})
        unlink(tempPath(f).c_str());
    rmdir(tempDir().c_str());
    return check::result("tst_pcapread");
}
