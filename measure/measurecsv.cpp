#include "measure/measurecsv.h"

#include <cmath>
#include <cstdio>

namespace vxmeasure {

namespace {

// Appends the decimal digits of `v` to `p`; returns the new end.
char* putUnsigned(char* p, uint64_t v)
{
    char digits[24];
    int n = 0;
    do {
        digits[n++] = char('0' + v % 10);
        v /= 10;
    } while (v);
    while (n)
        *p++ = digits[--n];
    return p;
}

// Appends ",value" with `decimals` decimals (rounded half away from zero),
// or "," alone for a value that is not a number.
char* putField(char* p, double v, int decimals)
{
    *p++ = ',';
    if (!std::isfinite(v))
        return p;
    static const double scale[] = {1.0, 10.0, 100.0, 1000.0};
    const double scaled = std::round(std::fabs(v) * scale[decimals]);
    if (scaled >= 1e18) // beyond any real profile: in exponent form
        return p + std::snprintf(p, 32, "%.6e", v);
    const auto units = static_cast<uint64_t>(scaled);
    if (v < 0 && units != 0)
        *p++ = '-';
    const uint64_t divisor = static_cast<uint64_t>(scale[decimals]);
    p = putUnsigned(p, units / divisor);
    if (decimals > 0) {
        *p++ = '.';
        uint64_t frac = units % divisor;
        for (uint64_t d = divisor / 10; d > 0; d /= 10) {
            *p++ = char('0' + frac / d);
            frac %= d;
        }
    }
    return p;
}

} // namespace

const char* MeasureCsv::header()
{
    return "line,points,z_min_mm,z_max_mm,z_mean_mm,base_mm,top_mm,height_mm,width_mm,"
           "centre_mm,angle_deg,area_mm2,noise_mm\n";
}

std::size_t MeasureCsv::row(uint64_t line, const ProfileMeasure::Result& r, char* out)
{
    constexpr double mm = 1000.0;
    char* p = putUnsigned(out, line);
    *p++ = ',';
    p = putUnsigned(p, r.count);
    p = putField(p, r.zMin * mm, 3);
    p = putField(p, r.zMax * mm, 3);
    p = putField(p, r.zMean * mm, 3);
    p = putField(p, r.base * mm, 3);
    p = putField(p, r.top * mm, 3);
    p = putField(p, r.height * mm, 3);
    p = putField(p, r.width * mm, 3);
    p = putField(p, r.centre * mm, 3);
    p = putField(p, r.angle, 3);
    p = putField(p, r.area * mm * mm, 1);
    p = putField(p, r.noise * mm, 3);
    *p++ = '\n';
    return std::size_t(p - out);
}

} // namespace vxmeasure
