// Captures as other tools write them: a capture of scanner lines, turned by
// editcap, mergecap and text2pcap (from tshark's package) into what real
// recordings look like, each counted, indexed, played and sought through,
// or refused with its reason.
#include "tests/capture/capturebuilder.h"
#include "tests/capture/seriestaker.h"
#include "tests/check.h"

#include "capture/captureindex.h"
#include "capture/captureports.h"
#include "capture/capturesource.h"
#include "capture/datagramextractor.h"
#include "scanner/vxlinedatastream.h"
#include "scanner/wireformat.h"
#include "scanner/wireencoder.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

using namespace vxrec;
using B = CaptureBuilder;
using strmsocket::WireEncoder;

namespace {

constexpr int kLines = 40;
// The foreign capture of tests/data begins at 1628004930 s; the lines lie
// within its time, so that a chronological merge interleaves them.
constexpr int64_t kStartNs = 1628004931LL * 1000000000;
constexpr int64_t kStepNs = 5000000;

using Taker = SeriesTaker;

template <typename F> bool waitFor(F done, int ms = 10000)
{
    for (int i = 0; i < ms / 5 && !done(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return done();
}

// The UDP payloads of the lines: a file header, then kLines raw lines of
// 600 pixels (series 0..kLines-1), each line in two datagrams.
std::vector<B::Bytes> lineDatagrams()
{
    std::vector<B::Bytes> out;
    const auto add = [&](const std::vector<char>& m, uint32_t number) {
        for (const auto& piece : WireEncoder::fragment(number, m.data(), m.size(), 1000))
            out.emplace_back(piece.begin(), piece.end());
    };
    add(WireEncoder::fileHeader(0, "device", {{100, -30.0}, {101, 0.1}}), 5000);
    for (uint32_t n = 0; n < uint32_t(kLines); ++n) {
        const WireEncoder::RawLine h{n, 1, 2, 0, 2, 0, 0, 0, 3, 600};
        const B::Bytes body = B::pattern(1800, uint8_t(n));
        add(WireEncoder::rawLine(h, reinterpret_cast<const char*>(body.data()), body.size()), n);
    }
    return out;
}

// The lines as Ethernet frames (with a VLAN pair if `vlan`), or behind the
// header of another link type.
std::vector<B::Bytes> frames(uint32_t linkType, bool vlan = false)
{
    std::vector<B::Bytes> out;
    for (const B::Bytes& d : lineDatagrams())
        out.push_back(B::link(linkType, 0x0800, B::ipv4(B::udp(6101, d)), vlan));
    return out;
}

std::string base(bool bigEndian = false)
{
    B b(bigEndian, false, 1);
    int i = 0;
    for (const B::Bytes& f : frames(1))
        b.add(kStartNs + (i++ / 2) * kStepNs, f);
    const std::string path = vxtest::tempPath(bigEndian ? "base-be.pcap" : "base.pcap");
    B::save(path, b.bytes());
    return path;
}

// A text dump of `frames` as text2pcap reads it.
std::string dump(const std::vector<B::Bytes>& fs, const std::string& name)
{
    const std::string path = vxtest::tempPath(name);
    std::ofstream out(path);
    char hex[24];
    for (const B::Bytes& f : fs) {
        for (std::size_t i = 0; i < f.size(); ++i) {
            if (i % 16 == 0) {
                std::snprintf(hex, sizeof hex, "%s%06zx", i ? "\n" : "", i);
                out << hex;
            }
            std::snprintf(hex, sizeof hex, " %02x", f[i]);
            out << hex;
        }
        out << "\n";
    }
    return path;
}

bool run(const std::string& command)
{
    const bool ok = std::system(("(" + command + ") >/dev/null 2>&1").c_str()) == 0;
    return ok || vxtest::fail(__FILE__, __LINE__, "failed: " + command);
}

std::string quoted(const std::string& path)
{
    return "'" + path + "'";
}

std::string in(const std::string& name)
{
    return quoted(vxtest::tempPath(name));
}

struct Row
{
    const char* name;
    std::string file;     // made by the tools
    std::size_t lines;    // lines the index finds
    std::vector<uint32_t> series; // played from the start, in order
    bool refused = false; // open() says why
    bool endsEarly = false;
};

std::vector<uint32_t> upTo(int n, int times = 1)
{
    std::vector<uint32_t> v;
    for (int t = 0; t < times; ++t)
        for (int i = 0; i < n; ++i)
            v.push_back(uint32_t(i));
    return v;
}

std::vector<Row> corpus()
{
    const std::string b = base();
    const std::string q = "'" + b + "'";
    std::vector<Row> rows;
    const auto make = [&](const char* name, const std::string& file, const std::string& command,
                          std::size_t lines, std::vector<uint32_t> series, bool refused = false,
                          bool endsEarly = false) {
        if (run(command))
            rows.push_back({name, vxtest::tempPath(file), lines, series, refused, endsEarly});
    };
    make("pcapng of two sections", "two.pcapng",
         "editcap -F pcapng " + q + " " + in("one.pcapng") + " && cat " + in("one.pcapng") + " " +
             in("one.pcapng") + " > " + in("two.pcapng"),
         2 * kLines, upTo(kLines, 2));
    make("pcapng of two interfaces", "interfaces.pcapng",
         "editcap -t 1000 " + q + " " + in("later.pcap") + " && mergecap -F pcapng -w " +
             in("interfaces.pcapng") + " " + q + " " + in("later.pcap"),
         2 * kLines, upTo(kLines, 2));
    make("nanosecond time stamps", "nano.pcap",
         "editcap -F nsecpcap " + q + " " + in("nano.pcap"), kLines, upTo(kLines));
    make("Linux cooked v1", "sll.pcap",
         "text2pcap -l 113 " + quoted(dump(frames(113), "sll.txt")) +
             " " + in("sll.pcap"),
         kLines, upTo(kLines));
    make("Linux cooked v2", "sll2.pcap",
         "text2pcap -l 276 " + quoted(dump(frames(276), "sll2.txt")) +
             " " + in("sll2.pcap"),
         kLines, upTo(kLines));
    make("VLAN-tagged Ethernet", "vlan.pcapng",
         "text2pcap -n -l 1 " +
             quoted(dump(frames(1, true), "vlan.txt")) + " " +
             in("vlan.pcapng"),
         kLines, upTo(kLines));
    make("cut by a snap length: no line, nothing decoded", "snap.pcap",
         "editcap -s 200 " + q + " " + in("snap.pcap"), 0, {});
    make("time stamps going backwards", "back.pcap",
         "editcap -r " + q + " " + in("p1.pcap") + " 1-41 && editcap -r " + q + " " +
             in("p2.pcap") + " 42-81 && editcap -t -60 " + in("p2.pcap") + " " + in("p2b.pcap") +
             " && mergecap -a -F pcap -w " + in("back.pcap") + " " + in("p1.pcap") + " " +
             in("p2b.pcap"),
         kLines, upTo(kLines));
    make("a pause of five minutes", "pause.pcap",
         "editcap -t 300 " + in("p2.pcap") + " " + in("p2s.pcap") + " && mergecap -a -F pcap -w " +
             in("pause.pcap") + " " + in("p1.pcap") + " " + in("p2s.pcap"),
         kLines, upTo(kLines));
    make("merged with UDP, TCP and ICMP of others", "foreign.pcapng",
         std::string("mergecap -F pcapng -w ") + in("foreign.pcapng") + " '" + VX_TEST_DATA +
             "/foreign-udp-tcp-mixed.pcapng' " + q,
         kLines, upTo(kLines));
    // The same datagrams to port 6101, over IPv6: skipped, never decoded.
    std::vector<B::Bytes> v6;
    for (const B::Bytes& d : lineDatagrams())
        v6.push_back(d);
    make("merged with the same datagrams over IPv6", "ipv6.pcapng",
         "text2pcap -6 fe80::1,fe80::2 -u 5000,6101 " +
             quoted(dump(v6, "v6.txt")) + " " + in("v6.pcap") +
             " && mergecap -F pcapng -w " + in("ipv6.pcapng") + " " + in("v6.pcap") + " " + q,
         kLines, upTo(kLines));
    const auto size = std::filesystem::file_size(b);
    make("ends in the middle of a record", "short.pcap",
         "head -c " + std::to_string(size - 1500) + " " + q + " > " + in("short.pcap"), kLines - 1,
         upTo(kLines - 1), false, true);
    make("Ethernet and raw IP in one file: refused", "links.pcapng",
         "text2pcap -l 101 " +
             quoted(dump({B::ipv4(B::udp(6101, lineDatagrams()[0]))}, "raw.txt")) +
             " " + in("raw.pcap") + " && mergecap -F pcapng -w " + in("links.pcapng") + " " + q +
             " " + in("raw.pcap"),
         0, {}, true);
    rows.push_back({"big-endian pcap", base(true), std::size_t(kLines), upTo(kLines)});
    return rows;
}

void check(const Row& row)
{
    vxtest::row = row.name;
    CaptureSource source(6101);
    if (row.refused) {
        // At opening, or at the first frame libpcap cannot read: no line,
        // and the reason.
        CapturePorts ports;
        CHECK(!ports.scan(row.file) || (ports.ports().empty() && !ports.error().empty()));
        if (source.open(row.file)) {
            CaptureIndex index;
            index.start(row.file, 6101);
            index.wait();
            CHECK(index.lines() == 0 && !index.error().empty());
        } else {
            CHECK(!source.error().empty());
        }
        return;
    }
    CapturePorts ports;
    CHECK(ports.scan(row.file));
    CHECK(ports.ports().size() == (row.lines ? 1u : 0u));
    if (row.lines)
        CHECK(!ports.ports().empty() && ports.ports()[0].port == 6101 &&
              ports.ports()[0].lines == row.lines);

    CaptureIndex index;
    index.start(row.file, 6101);
    index.wait();
    CHECK_EQ(index.lines(), row.lines);
    CHECK(index.error().empty() != row.endsEarly);

    if (row.lines == 0) {
        // Frames cut by the snap length are counted as such, never decoded:
        // only the file header, short enough to be whole, comes through.
        DatagramExtractor x({6101, -1});
        UdpDatagram d;
        CHECK(x.open(row.file));
        while (x.next(d) == DatagramExtractor::Status::Datagram)
            CHECK(!strmsocket::WireFormat::beginsRawLine(d.data, d.length));
        CHECK(x.skipped()[SkipKind::TruncatedFrame] >= std::size_t(kLines));
        return;
    }

    // Played as fast as possible, then sought back to a line of the first
    // part (across a section, an interface, a pause): each as it was sent.
    auto s = std::make_unique<CaptureSource>(6101);
    CaptureSource* src = s.get();
    Taker taker;
    if (!CHECK(src->open(row.file)))
        return;
    src->setSpeed(0);
    if (!CHECK(taker.Connect(std::move(s))))
        return;
    CHECK(waitFor([&] { return src->status().ended; }));
    CHECK(waitFor([&] { return taker.taken().size() >= row.series.size(); }));
    CHECK(taker.taken() == row.series);
    CHECK(src->status().problem.empty() != row.endsEarly);
    CHECK(taker.counters().incompleteMessages == 0);
    std::vector<uint32_t> expected = row.series;
    for (std::size_t line : {std::size_t(3), row.lines - 1, std::size_t(0)}) {
        uint64_t prelude = CaptureSource::kNoPrelude;
        index.headerBefore(line, prelude);
        src->seek(index.entry(line).offset, line, prelude);
        src->playLines(1);
        expected.push_back(row.series[line]);
        CHECK(waitFor([&] { return taker.taken().size() == expected.size(); }));
    }
    CHECK(taker.taken() == expected);
}

} // namespace

int main()
{
    for (const Row& row : corpus())
        check(row);
    return vxtest::result("tst_capturecorpus");
}
