#pragma once
#include "scanner/pointnd.h"
#include "scanner/vxpt.h"

#include <cstdint>
#include <vector>

namespace vxs {

// A line of points: the base of the viewer's line record.
// Thread-safety: written by one thread before it is shared; read-only after.
class VxPtLine
{
public:
    VxPtLine() = default;
    virtual ~VxPtLine();

    int64_t reserved = 0;         // a word, 0
    int32_t flags = 0;            // line flags; bit 3 (8) marks a drawable line
    std::vector<VxPt> points;     // one point per pixel, in pixel order
    std::vector<uint8_t> header;  // the line header bytes
    math::PointND<double, 3> origin;
};

} // namespace vxs
