#include "tools/measure/measureoptions.h"

#include <algorithm>

namespace vxmeasure {

using vxcommon::CommandLine;

const char* MeasureOptions::usage()
{
    return "Usage: vxscanner-measure CAPTURE --roi Y0:Y1 [--port P] [--sunk] [--quiet]\n"
           "Measures a region of every line of a pcap or pcapng capture and writes the\n"
           "measures as CSV to standard output: a header naming the columns, then one\n"
           "row per line, numbered from 0 in the order the lines are decoded.\n"
           "\n"
           "  --roi Y0:Y1   the region along the profile's horizontal axis y (the one\n"
           "                the cut view draws), in metres, e.g. --roi -0.6:0.05\n"
           "  --port P      measure the lines sent to UDP port P (default 6101)\n"
           "  --sunk        measure grooves and gaps instead of raised features\n"
           "  --quiet       no progress on standard error\n"
           "  --help        show this text\n"
           "\n"
           "Columns: line, points, z_min_mm, z_max_mm, z_mean_mm, base_mm, top_mm,\n"
           "height_mm, width_mm, centre_mm, angle_deg, area_mm2, noise_mm (see\n"
           "docs/measurements.md). Exit status: 0 when done, 1 on a file error, a\n"
           "damaged capture or a port without lines, 2 on bad options.\n";
}

bool MeasureOptions::parseRoi(const std::string& text, double& y0, double& y1)
{
    const auto colon = text.find(':');
    if (colon == std::string::npos)
        return false;
    double a = 0.0, b = 0.0;
    constexpr double kLimit = 1e6; // metres; beyond any scanner's reach
    if (!CommandLine::toNumber(text.substr(0, colon), -kLimit, kLimit, a) ||
        !CommandLine::toNumber(text.substr(colon + 1), -kLimit, kLimit, b) || a == b)
        return false;
    y0 = std::min(a, b);
    y1 = std::max(a, b);
    return true;
}

MeasureOptions::Outcome MeasureOptions::parse(int argc, const char* const* argv,
                                              MeasureOptions& out, std::string& error)
{
    CommandLine cl(argc, argv);
    bool haveFile = false;
    const auto read = [&](const std::string& arg) {
        if (arg == "--help" || arg == "-h")
            return Outcome::Help;
        bool ok = true;
        if (arg.size() > 1 && arg[0] == '-' && !(arg[1] >= '0' && arg[1] <= '9')) {
            ok = out.read(cl, arg);
        } else if (haveFile) {
            ok = cl.fail("more than one capture file given");
        } else {
            out.file = arg;
            haveFile = true;
        }
        return ok ? Outcome::Run : Outcome::Error;
    };
    const auto complete = [&] {
        if (!haveFile)
            return cl.fail("no capture file given");
        return out.haveRoi || cl.fail("no region given: --roi Y0:Y1 (metres)");
    };
    return cl.walk(read, complete, error);
}

bool MeasureOptions::read(CommandLine& cl, const std::string& name)
{
    if (name == "--port")
        return cl.integer(1, 65535, port);
    if (name == "--roi") {
        std::string text;
        if (!cl.value(text))
            return false;
        haveRoi = parseRoi(text, roi0, roi1);
        return haveRoi || cl.fail("--roi: '" + text +
                                  "' is not Y0:Y1, two different numbers of metres");
    }
    if (name == "--sunk")
        sunk = true;
    else if (name == "--quiet")
        quiet = true;
    else
        return cl.fail("unknown option " + name);
    return true;
}

} // namespace vxmeasure
