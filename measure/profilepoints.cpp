#include "measure/profilepoints.h"

namespace vxmeasure {

void ProfilePoints::assign(const vxs::VxPt* points, std::size_t n)
{
    clear();
    reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        const vxs::VxPt& p = points[i];
        // Fields read by value: the record is packed.
        if (p.valid != 0 && p.reject == 0)
            add(p.range, p.y, p.z);
    }
}

} // namespace vxmeasure
