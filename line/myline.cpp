#include "line/myline.h"

namespace vxlindral {

MyLine::MyLine()
{
    // Bit 3 marks a drawable line; every received line is drawable.
    flags = 200;
}

MyLine::~MyLine() = default;

std::size_t MyLine::footprint() const
{
    std::size_t bytes =
        sizeof(MyLine) + points.capacity() * sizeof(vxs::VxPt) + header.capacity() +
        data.capacity() +
        (avr.capacity() + sdev.capacity() + min.capacity() + max.capacity()) * sizeof(double);
    // Raw bytes up to ByteVector::kInline live inside the point; all points
    // of a line have the same bpp, so the first one tells whether any
    // point's bytes are out of line.
    if (!points.empty() && points.front().raw.capacity() > vxs::ByteVector::kInline) {
        for (const vxs::VxPt& pt : points)
            bytes += pt.raw.capacity();
    }
    return bytes;
}

} // namespace vxlindral
