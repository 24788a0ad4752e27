#include "line/linetype.h"

#include <atomic>

namespace vxlindral {

namespace {
std::atomic<int> lineTypeId{0};
}

int registerLineType()
{
    int id = lineTypeId.load(std::memory_order_acquire);
    if (id == 0) {
        // Registration is idempotent, so two threads racing here agree.
        id = qRegisterMetaType<LineType>("vxlindral::LineType");
        lineTypeId.store(id, std::memory_order_release);
    }
    return id;
}

} // namespace vxlindral
