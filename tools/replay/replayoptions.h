#pragma once
#include <cstdint>
#include <string>

namespace vxrec {

// The command line of vxscanner-replay. Plain value; one thread.
struct ReplayOptions
{
    std::string file;
    uint16_t port = 6101; // destination port of the datagrams picked
    int sourcePort = -1;  // source port of the datagrams picked; -1: any
    std::string host = "127.0.0.1";
    int toPort = -1;    // -1: the same as `port`
    double speed = 1.0; // 2.0 plays twice as fast
    bool fast = false;  // no pacing at all
    bool loop = false;
    double start = 0.0; // seconds after the capture's first frame
    bool quiet = false; // no progress lines

    enum class Parse
    {
        Ok,
        Help,
        Error
    };
    Parse parse(int argc, char** argv, std::string& error);
    uint16_t destinationPort() const { return static_cast<uint16_t>(toPort < 0 ? port : toPort); }
    static const char* usage();
};

} // namespace vxrec
