#pragma once
#include <QString>
#include <cstdint>

// A capture of the simulator's lines for the benchmarks that play or export
// one: street-scene lines, 5,000 a second, as the simulator sends them to
// port 6101 (pcap, loopback addresses); optionally as a mirror port sees
// them, with other traffic between the lines and pauses of a minute.
// Threads: any; nothing is shared.
class SimCapture
{
public:
    static constexpr int kPort = 6101;
    struct Mirror
    {
        uint64_t otherBytesPerLine = 0; // other UDP traffic after each line, in 1,400-byte datagrams
        uint64_t pauseEvery = 0;        // lines between two pauses of a minute (0: none)
    };
    // Writes `lines` lines of `pixels` pixels to `path`; false when the file
    // cannot be written.
    static bool write(const QString& path, uint64_t lines, int pixels, const Mirror& mirror);
    static bool write(const QString& path, uint64_t lines, int pixels = 2048);
};
