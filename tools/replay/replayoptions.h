#pragma once
#include "tools/common/commandline.h"

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

    using Outcome = vxcommon::CommandLine::Outcome;
    // Parses argv[1..argc-1] into `out`. On Error, `error` holds a one-line
    // message.
    static Outcome parse(int argc, const char* const* argv, ReplayOptions& out, std::string& error);
    static const char* usage();

    uint16_t destinationPort() const { return static_cast<uint16_t>(toPort < 0 ? port : toPort); }

private:
    // Takes the option `name` and its value from `cl`; false with cl.error()
    // set when the option is unknown or its value is bad.
    bool read(vxcommon::CommandLine& cl, const std::string& name);
};

} // namespace vxrec
