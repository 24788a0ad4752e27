// The ports of a capture that carry scanner lines, counted in files the
// project's writers make: which ports, how many lines, which port is offered
// first, the bound on what is read, damaged files and files that are not
// captures.
#include "tests/check.h"

#include "capture/captureports.h"
#include "capture/pcapngwriter.h"
#include "capture/pcapwriter.h"
#include "scanner/wireencoder.h"

#include <filesystem>
#include <fstream>

using namespace vxrec;
using strmsocket::WireEncoder;
using Counts = std::vector<std::pair<uint16_t, uint64_t>>;

namespace {

// To each port of `lines` a file header message (no line), then its lines
// interleaved with the other ports', each in two datagrams of which only the
// first begins the line.
template <class Writer> std::string write(const std::string& name, const Counts& lines)
{
    const std::string path = vxtest::tempPath(name);
    Writer w;
    CHECK(w.open(path));
    int64_t t = 1700000000LL * 1000000000;
    const auto send = [&](uint16_t port, const std::vector<char>& d) {
        CHECK(w.write(t += 1000, 0x0a000002, 5000, 0x0a000001, port,
                      reinterpret_cast<const uint8_t*>(d.data()), d.size()));
    };
    const auto header = WireEncoder::fileHeader(0, "dev", {});
    for (const auto& [port, n] : lines)
        send(port, WireEncoder::fragment(0, header.data(), header.size())[0]);
    const std::vector<char> body(700, 'x');
    for (uint32_t i = 0; i < 10; ++i)
        for (const auto& [port, n] : lines)
            for (uint32_t k = i; k < n; k += 10) {
                const auto m = WireEncoder::rawLine({k}, body.data(), body.size());
                for (const auto& d : WireEncoder::fragment(k, m.data(), m.size(), 500))
                    send(port, d);
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

// In pcap and in pcapng: every port with lines listed once, ascending, with
// its own count; ports without lines left out; 6101 offered whenever
// present, else the busiest port.
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
        {"6101 not the busiest", {{7000, 9}, {6101, 2}}, {{6101, 2}, {7000, 9}}, 6101},
        {"no 6101", {{6102, 3}, {7001, 18}, {7000, 18}}, {{6102, 3}, {7000, 18}, {7001, 18}}, 7000},
        {"no scanner lines", {{6101, 0}, {6102, 0}}, {}, 0},
    };
    for (const Row& row : rows)
        for (const bool ng : {false, true}) {
            vxtest::row = std::string(row.name) + (ng ? " pcapng" : " pcap");
            CapturePorts scan;
            CHECK(scan.scan(ng ? write<PcapngWriter>("p.pcapng", row.written)
                               : write<PcapWriter>("p.pcap", row.written)));
            CHECK(counts(scan) == row.listed && !scan.partial() && scan.error().empty());
            CHECK_EQ(CapturePorts::choose(scan.ports()), row.chosen);
        }
}

// Only the frames that start within the bound are read, and partial() says
// whether any were left; a bound at the file's end reads it all. A file cut
// in a record gives the lines before the cut and why it stopped; a file that
// is no capture gives nothing but the reason.
void boundAndDamage()
{
    vxtest::row = "bound";
    const std::string path = write<PcapWriter>("big.pcap", {{6101, 200}});
    const uint64_t size = std::filesystem::file_size(path);
    CapturePorts scan;
    CHECK(scan.scan(path, size / 4) && scan.partial() && scan.ports().size() == 1);
    CHECK(scan.ports()[0].lines > 40 && scan.ports()[0].lines < 60);
    CHECK(scan.scan(path, size) && !scan.partial() && counts(scan) == Counts({{6101, 200}}));

    vxtest::row = "cut in a record";
    std::filesystem::resize_file(path, size - 500); // into the last line's first datagram
    CHECK(scan.scan(path) && !scan.error().empty() && counts(scan) == Counts({{6101, 199}}));

    vxtest::row = "not a capture";
    std::ofstream(path) << "these are notes, not a capture\n";
    CHECK(!scan.scan(path) && !scan.error().empty() && scan.ports().empty());
}

} // namespace

int main()
{
    portsAndCounts();
    boundAndDamage();
    return vxtest::result("tst_captureports");
}
