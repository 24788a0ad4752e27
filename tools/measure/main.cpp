// vxscanner-measure: the measures of a region of every line of a capture as
// CSV on standard output. See MeasureOptions::usage().
#include "tools/measure/capturemeasure.h"
#include "tools/measure/measureoptions.h"

#include <cstdio>

namespace {

int measure(const vxmeasure::MeasureOptions& options)
{
    // Rows go out in large blocks.
    static char buffer[1 << 20];
    std::setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
    return vxmeasure::CaptureMeasure::run(options, stdout, stderr);
}

} // namespace

int main(int argc, char** argv)
{
    return vxcommon::CommandLine::run(argc, argv, "vxscanner-measure",
                                      "(see vxscanner-measure --help)", measure);
}
