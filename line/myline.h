#pragma once
#include "scanner/rawlineparser.h"
#include "scanner/vxptline.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace vxlindral {

// One received scan line: header bytes, pixel bytes, decoded points, its own
// copy of the column layout and the per-column statistics.
// Ownership: shared through LineType; freed (or, when it came from a
// LinePool, returned there) when the last holder lets go.
// Threads: built on the receive thread, then read-only and readable from any
// thread.
class MyLine : public vxs::VxPtLine
{
public:
    MyLine();
    ~MyLine() override;

    int rowCount() const { return pixel; }

    // Bytes this line holds: the record itself and the capacity of every
    // buffer it owns (points with their out-of-line raw bytes, header, pixel
    // bytes, statistics). The layout is shared and not counted.
    std::size_t footprint() const;

    std::vector<uint8_t> data;                 // count x bpp pixel bytes
    std::shared_ptr<vx::RawLineParser> parser; // layout current when the line arrived
    int pixel = 0;                             // pixel count announced by the line
    uint32_t series = 0;                       // the scanner's series number of the line
    uint32_t frame = 0;       // the receiver's number of the line: raw lines before it, from 0
    std::vector<double> avr;  // per-column mean
    std::vector<double> sdev; // per-column standard deviation
    std::vector<double> min;  // per-column minimum
    std::vector<double> max;  // per-column maximum
};

} // namespace vxlindral
