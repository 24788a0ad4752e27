#pragma once
#include "tools/common/commandline.h"

#include <cstdint>
#include <string>

namespace vxmeasure {

// The command line of vxscanner-measure. Plain value; one thread.
struct MeasureOptions
{
    std::string file;
    uint16_t port = 6101;   // the lines sent to this UDP port
    double roi0 = 0.0;      // the region along y, metres (roi0 < roi1)
    double roi1 = 0.0;
    bool haveRoi = false;
    bool sunk = false;      // look for grooves and gaps instead of raised features
    bool quiet = false;     // no progress on standard error

    using Outcome = vxcommon::CommandLine::Outcome;
    // Parses argv[1..argc-1] into `out`. On Error, `error` holds a one-line
    // message.
    static Outcome parse(int argc, const char* const* argv, MeasureOptions& out,
                         std::string& error);
    static const char* usage();
    // "Y0:Y1" in metres into the two ends (either order, sorted); false for
    // anything else, or a region without width.
    static bool parseRoi(const std::string& text, double& y0, double& y1);

private:
    // Takes the option `name` and its value from `cl`; false with cl.error()
    // set when the option is unknown or its value is bad.
    bool read(vxcommon::CommandLine& cl, const std::string& name);
};

} // namespace vxmeasure
