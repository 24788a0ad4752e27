#include "stream/myline.h"

namespace vxlindral {

MyLine::MyLine()
{
    // Bit 3 marks a drawable line; every received line is drawable.
    flags = 200;
}

MyLine::~MyLine()
{
    // A line whose queued hand-over was dropped must not keep its slot.
    releaseInFlight();
}

void MyLine::releaseInFlight()
{
    if (released.exchange(true, std::memory_order_acq_rel))
        return;
    if (inFlight)
        inFlight->fetch_sub(1, std::memory_order_acq_rel);
}

} // namespace vxlindral
