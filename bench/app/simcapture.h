#pragma once
#include <QString>
#include <cstdint>

// A capture of the simulator's lines for the benchmarks that play or export
// one: street-scene lines, 5,000 a second, as the simulator sends them to
// port 6101 (pcap, loopback addresses).
// Threads: any; nothing is shared.
class SimCapture
{
public:
    static constexpr int kPort = 6101;
    // Writes `lines` lines of `pixels` pixels to `path`; false when the file
    // cannot be written.
    static bool write(const QString& path, uint64_t lines, int pixels = 2048);
};
