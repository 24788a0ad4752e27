#pragma once
#include "tools/common/commandline.h"

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

    using Outcome = vxcommon::CommandLine::Outcome;
    // Parses argv[1..argc-1] into `out`. On Error, `error` holds a one-line
    // message.
    static Outcome parse(int argc, const char* const* argv, CaptureOptions& out,
                         std::string& error);
    static const char* usage();

private:
    // Takes the option `name` and its value from `cl`; false with cl.error()
    // set when the option is unknown or its value is bad.
    bool read(vxcommon::CommandLine& cl, const std::string& name);
};

} // namespace vxrec
