#pragma once
#include "line/myline.h"

#include <cstdint>

namespace vxlindral {

// How a line becomes the points the viewer draws and exports, in one place:
// the 3D view's cloud, the gray view's colours, the 3D view's cloud export
// and a capture's stretch export all map a line through it.
//
// - The k-th line taken in lies at x = k / 250 + 0.1 (lineX).
// - A pixel's point is (x, -z, y) of the pixel's scanner coordinates: the
//   scan line runs along the viewer's z, the height along its -y.
// - A pixel's gray comes from the line's intensity range (intensityRange):
//   its intensity less the range's lower end, over a 210th of the range,
//   plus 45, over 255 (colour); the colour buffer keeps it as 8 bits (gray8).
//
// Stateless; any thread.
class LinePoints
{
public:
    // The intensities a line's grays are spread over.
    struct Range
    {
        int minI = 0;      // the intensity drawn at gray 45/255
        double step = 0.0; // intensities per gray step: (maxI - minI) / 210
    };
    // A pixel as drawn.
    struct Point
    {
        float x, y, z;
        float colour; // r = g = b
    };

    // Narrows [minI, maxI] (callers start from 65535 and 0) to the band
    // mean - 2s .. mean + 3s of the intensities of the line's first `pixel`
    // points (s the sample standard deviation; none for a single point),
    // never beyond the intensities seen; a degenerate result becomes
    // 0 .. 65535. Throws std::out_of_range when the pixel count exceeds the
    // points.
    static void intensityRange(const MyLine& line, int& minI, int& maxI);
    // The range of a line's grays: intensityRange from 65535 and 0.
    static Range rangeOf(const MyLine& line);

    // The x of line number `index` (0: the first line taken in).
    static float lineX(int64_t index) { return static_cast<float>(index / 250.0 + 0.1); }
    // The colour of `intensity` in `range`. Intensities below the range wrap
    // (unsigned) and come out very bright; the colour buffer clamps them.
    static float colour(uint32_t intensity, const Range& range)
    {
        const uint32_t d = intensity - static_cast<uint32_t>(range.minI);
        double c = (d / range.step + 45.0) / 255.0;
        if (c > 255.0)
            c = 255.0;
        return static_cast<float>(c);
    }
    // The gray of a colour as the 8-bit colour buffer keeps it: clamped to
    // 0..1 (a NaN counts as 0), times 255, rounded.
    static uint8_t gray8(float colour);
    // The drawn point of pixel `pt` on a line at `x`.
    static Point point(const vxs::VxPt& pt, float x, const Range& range)
    {
        return {x, -static_cast<float>(pt.z), static_cast<float>(pt.y), colour(pt.intensity, range)};
    }
};

} // namespace vxlindral
