#pragma once
#include "tools/measure/measureoptions.h"

#include <cstdint>
#include <cstdio>

namespace vxmeasure {

// vxscanner-measure's work: plays the lines of one port of a capture as
// fast as possible through the receive path the window plays captures on
// (a CaptureSource on a receive loop) into a LineMeasurer, and writes the
// CSV header and rows to `out`, progress and errors to `log`.
// Threads: run() on one thread; it starts and joins the receive thread.
class CaptureMeasure
{
public:
    // The exit status: 0 done, 1 when the file cannot be read, is damaged
    // (the rows before the damage are written) or has no line on the port.
    // `lines` receives the rows written.
    static int run(const MeasureOptions& options, std::FILE* out, std::FILE* log,
                   uint64_t* lines = nullptr);
};

} // namespace vxmeasure
