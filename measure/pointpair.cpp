#include "measure/pointpair.h"

#include <cmath>

namespace vxmeasure {

PointPair PointPair::between(double y1, double z1, double y2, double z2)
{
    PointPair p;
    p.dy = y2 - y1;
    p.dz = z2 - z1;
    p.distance = std::hypot(p.dy, p.dz);
    if (p.dy == 0.0)
        p.angle = p.dz == 0.0 ? 0.0 : 90.0;
    else
        p.angle = std::atan(p.dz / p.dy) * (180.0 / 3.14159265358979323846);
    return p;
}

} // namespace vxmeasure
