#pragma once
#include "scanner/vxlinedatastream.h"

#include <unistd.h>
#include <vector>

// The viewer's receiver on a loopback port, keeping a copy of every raw-line
// message. Written on the receive thread: read `lines` after Disconnect
// (which joins it).
struct LineReceiver : VxLinedataStream
{
    std::vector<std::vector<char>> lines;

    void OnRAWData(const strmsocket::VxStreamDeviceInfo&, const char* packet,
                   const strmsocket::LineRawInfo&, const char*, const char*, int,
                   int length) override
    {
        lines.emplace_back(packet, packet + length);
    }
    // Waits for `datagrams` (5 s at most), then 300 ms for any more.
    void settle(uint64_t datagrams)
    {
        for (int i = 0; i < 250 && counters().datagrams < datagrams; ++i)
            usleep(20000);
        usleep(300000);
    }
};
