#pragma once

namespace vxmeasure {

// The measures between two points of a profile, (y1, z1) and (y2, z2) in
// metres: dy = y2 - y1, dz = z2 - z1, their distance, and the angle of the
// line through them against the horizontal y axis, in degrees within
// -90 .. 90: atan(dz / dy), the same as the cut view's picture shows it (a
// positive angle rises to the right there; the view draws y growing to the
// left and z growing downwards, which turns the slope twice). Points one
// above the other give 90, one point twice gives 0.
// A plain value; any thread.
struct PointPair
{
    double dy = 0.0;
    double dz = 0.0;
    double distance = 0.0;
    double angle = 0.0;

    static PointPair between(double y1, double z1, double y2, double z2);
};

} // namespace vxmeasure
