// The ports of a capture that carry scanner lines, counted in files the
// project's writers make: which ports, how many lines, which port is offered
// first, the bound on what is read, and files that are not captures.
#include "tests/check.h"

#include "capture/captureports.h"
#include "capture/pcapngwriter.h"
#include "capture/pcapwriter.h"
#include "scanner/wireencoder.h"

#include <filesystem>
#include <fstream>
#include <utility>

using namespace vxrec;
using strmsocket::WireEncoder;
using Counts = std::vector<std::pair<uint16_t, uint64_t>>;

namespace {

constexpr int64_t kT0 = 1700000000LL * 1000000000;

// Writes, round robin over `lines` (port, count), each line as two datagrams
// (only the first begins a line), and to each port a file header message
// (not a line). Pcap or pcapng by `Writer`.
template <class Writer> std::string write(const std::string& name, const Counts& lines)
{
    const std::string path = vxtest::tempPath(name);
    Writer w;
    CHECK(w.open(path));
    const std::vector<char> body(700, 'x');
    int64_t t = kT0;
    const auto send = [&](uint16_t port, const std::vector<char>& d) {
        CHECK(w.write(t += 1000, 0x0a000002, 5000, 0x0a000001, port,
                      reinterpret_cast<const uint8_t*>(d.data()), d.size()));
    };
    const auto header = WireEncoder::fileHeader(0, "dev", {});
    for (const auto& [port, n] : lines)
        send(port, WireEncoder::fragment(0, header.data(), header.size())[0]);
    for (uint64_t i = 0, more = 1; more; ++i) {
        more = 0;
        for (const auto& [port, n] : lines) {
            if (i >= n)
                continue;
            more = 1;
            const auto m = WireEncoder::rawLine({uint32_t(i)}, body.data(), body.size());
            for (const auto& d : WireEncoder::fragment(uint32_t(i), m.data(), m.size(), 500))
                send(port, d);
        }
    }
    CHECK(w.close());
    return path;
}

Counts counts(const CapturePorts& scan)
{
    Counts c;
    for (const auto& p : scan.ports())
        c.emplace_back(p.port, p.lines);
    return c;
}

// Rows of ports and their lines, in pcap and in pcapng: every port with
// lines listed once, ascending, with its own count; ports without lines
// left out; 6101 offered whenever present, else the busiest port.
void portsAndCounts()
{
    struct Row
    {
        const char* name;
        Counts written, listed;
        uint16_t chosen;
    };
    const Row rows[] = {
        {"one port", {{7002, 5}}, {{7002, 5}}, 7002},
        {"several, 6101 not the busiest",
         {{7000, 9}, {6101, 2}, {6102, 4}},
         {{6101, 2}, {6102, 4}, {7000, 9}},
         6101},
        {"several without 6101",
         {{6102, 3}, {7001, 8}, {7000, 8}},
         {{6102, 3}, {7000, 8}, {7001, 8}},
         7000},
        {"no scanner lines", {{6101, 0}, {6102, 0}}, {}, 0},
    };
    for (const Row& row : rows) {
        for (const bool ng : {false, true}) {
            vxtest::row = std::string(row.name) + (ng ? " pcapng" : " pcap");
            const std::string path = ng ? write<PcapngWriter>("p.pcapng", row.written)
                                        : write<PcapWriter>("p.pcap", row.written);
            CapturePorts scan;
            CHECK(scan.scan(path));
            CHECK(counts(scan) == row.listed);
            CHECK(!scan.partial() && scan.error().empty());
            CHECK_EQ(CapturePorts::choose(scan.ports()), row.chosen);
        }
    }
}

// Only the frames that start within the bound are read, and partial() says
// whether any were left; a bound at the file's end reads it all. A file cut
// in a record gives the lines before the cut and says why it stopped.
void boundAndDamage()
{
    vxtest::row = "bound";
    const std::string path = write<PcapWriter>("big.pcap", {{6101, 200}});
    const uint64_t size = std::filesystem::file_size(path);
    CapturePorts scan;
    CHECK(scan.scan(path, size / 4) && scan.partial());
    CHECK(scan.ports().size() == 1 && scan.ports()[0].lines > 40 && scan.ports()[0].lines < 60);
    CHECK(scan.scan(path, size) && !scan.partial() && counts(scan) == Counts({{6101, 200}}));

    vxtest::row = "cut in a record";
    std::filesystem::resize_file(path, size - 500); // into the last line's first datagram
    CHECK(scan.scan(path) && !scan.error().empty() && !scan.partial());
    CHECK(counts(scan) == Counts({{6101, 199}}));
}

// Files that cannot be read at all: false, no ports, the reader's reason.
void notCaptures()
{
    const std::string text = vxtest::tempPath("notes.txt");
    std::ofstream(text) << "these are notes, not a capture\n";
    const std::pair<const char*, std::string> rows[] = {
        {"not a capture", text},
        {"missing", vxtest::tempPath("missing.pcap")},
    };
    for (const auto& [name, path] : rows) {
        vxtest::row = name;
        CapturePorts scan;
        CHECK(!scan.scan(path) && !scan.error().empty() && scan.ports().empty());
    }
}

} // namespace

int main()
{
    portsAndCounts();
    boundAndDamage();
    notCaptures();
    return vxtest::result("tst_captureports");
}
