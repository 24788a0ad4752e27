#include "views/linepoints.h"

#include <algorithm>
#include <cmath>

namespace vxlindral {

void LinePoints::intensityRange(const MyLine& line, int& minI, int& maxI)
{
    const int n = line.pixel;
    double lower = 0.0;
    double upper = 0.0;
    if (n > 0) {
        double sum = 0.0;
        double sumsq = 0.0;
        for (int i = 0; i < n; ++i) {
            const int v = static_cast<int>(line.points.at(static_cast<std::size_t>(i)).intensity);
            if (v < minI)
                minI = v;
            if (v > maxI)
                maxI = v;
            const double d = v;
            sum += d;
            sumsq += d * d;
        }
        if (n != 1) {
            const double mean = sum / n;
            const double variance = (sumsq - sum * sum / n) / (n - 1);
            const double s = std::sqrt(variance);
            lower = mean - 2.0 * s;
            upper = mean + 3.0 * s;
        }
    }
    if (lower > minI)
        minI = static_cast<int>(lower);
    if (maxI > upper)
        maxI = static_cast<int>(upper);
    if (minI == maxI) {
        minI = 0;
        maxI = 65535;
    }
}

LinePoints::Range LinePoints::rangeOf(const MyLine& line)
{
    int minI = 65535;
    int maxI = 0;
    intensityRange(line, minI, maxI);
    return {minI, (maxI - minI) / 210.0};
}

uint8_t LinePoints::gray8(float colour)
{
    const float c = colour > 0.0f ? std::min(colour, 1.0f) : 0.0f;
    return static_cast<uint8_t>(std::lround(c * 255.0f));
}

} // namespace vxlindral
