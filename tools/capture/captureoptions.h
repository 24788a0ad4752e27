#pragma once
#include <cstdint>
#include <string>

namespace vxrec {

// The command line of vxscanner-capture. Plain value; one thread.
struct CaptureOptions
{
    int port = -1;         // UDP port to bind; 0 picks a free one
    std::string out;       // the pcap file to write
    std::string bind;      // local address to bind; empty: all interfaces
    uint64_t count = 0;    // stop after this many datagrams; 0: no limit
    double duration = 0;   // stop after this many seconds; 0: no limit
    uint64_t maxBytes = 0; // the file never grows beyond this; 0: no limit

    enum class Parse
    {
        Ok,
        Help,
        Error
    };
    Parse parse(int argc, char** argv, std::string& error);
    static const char* usage();
};

} // namespace vxrec
