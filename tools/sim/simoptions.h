#pragma once
#include "tools/common/commandline.h"
#include "tools/sim/scene.h"

#include <cstdint>
#include <set>
#include <string>

namespace vxsim {

// The simulator's command line: what to send, where and how fast. parse()
// fills a value from argv and checks every value and their combination, so
// that the rest of the simulator may rely on consistent settings.
// A plain value; any thread.
class SimOptions
{
public:
    // Run: options valid, start sending; Help: --help given, print usage()
    // and exit 0; Error: bad options, print the error and exit 2.
    using Outcome = vxcommon::CommandLine::Outcome;

    std::string host = "127.0.0.1";
    int port = 6101;
    double rate = 200.0; // lines per second
    int pixels = 2048;
    int subProtocol = 2;      // protocol 1.<subProtocol>: 1, 2 or 3
    bool shortLayout = false; // protocol 1.1 only
    int bpp = 8;
    int datatyp = 2;
    uint32_t mode = 0; // protocols 1.2/1.3 only
    uint32_t device = 0;
    uint64_t count = 0;    // lines to send; 0 = no limit
    double duration = 0.0; // seconds to send; 0 = no limit
    int lineheadersize = 32;
    Scene::Kind scene = Scene::Street;
    // Line header words 1 and 2 carry the CLOCK_MONOTONIC microseconds at
    // which the line is sent instead of the scanner timestamp, so that a
    // receiver on the same machine can measure each line's delay.
    bool stampSendTime = false;
    // File headers are sent (at start, then once a second); --no-header
    // sends none, so that the viewer uses its default geometry.
    bool fileHeader = true;

    // Parses argv[1..argc-1] into `out` (left alone unless the outcome is
    // Run). On Error, `error` holds a one-line message.
    static Outcome parse(int argc, const char* const* argv, SimOptions& out, std::string& error);
    static std::string usage();

    // Bytes a pixel needs so that range and intensity fit where the viewer
    // reads them: 8 for the 1.1 long layout, 5 otherwise.
    int basicBytes() const;
    // Bytes of one raw-line message: record header, line header, pixels.
    uint64_t messageBytes() const;
    // The protocol as text ("1.2").
    std::string protocolText() const;

private:
    // Takes the option `name` and its value from `cl`; false with
    // cl.error() set when the option is unknown, repeated or its value is
    // bad. `given` collects the options seen.
    bool read(vxcommon::CommandLine& cl, const std::string& name, std::set<std::string>& given);
    // Checks the options together and fills in the defaults that depend on
    // others; false with cl.error() set when they do not fit together.
    bool settle(vxcommon::CommandLine& cl, const std::set<std::string>& given);
};

} // namespace vxsim
