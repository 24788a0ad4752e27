#pragma once
#include "scanner/vxpt.h"

#include <cmath>
#include <cstddef>
#include <vector>

namespace vxmeasure {

// The points of one line that can be measured, in pixel order: their
// horizontal y and vertical z in metres, the two coordinates the cut view
// draws. A point without a range (range 0: no echo) is left out, and so is
// one with a coordinate that is not a number; from a line's records also a
// point that is not valid or that a filter rejected.
//
// The storage is kept from line to line: once it has grown to a line's
// pixel count, filling it again allocates nothing.
//
// Ownership: owns its arrays. Threads: one thread at a time.
class ProfilePoints
{
public:
    void clear()
    {
        ys.clear();
        zs.clear();
    }
    void reserve(std::size_t n)
    {
        ys.reserve(n);
        zs.reserve(n);
    }
    // Adds the point of the next pixel (range in metres), unless it is left out.
    void add(double range, double y, double z)
    {
        if (!(range > 0.0) || !std::isfinite(y) || !std::isfinite(z))
            return;
        ys.push_back(y);
        zs.push_back(z);
    }
    // Replaces the points by those of a line's `n` point records.
    void assign(const vxs::VxPt* points, std::size_t n);

    std::size_t size() const { return ys.size(); }
    const double* y() const { return ys.data(); }
    const double* z() const { return zs.data(); }

private:
    std::vector<double> ys;
    std::vector<double> zs;
};

} // namespace vxmeasure
