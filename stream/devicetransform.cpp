#include "stream/devicetransform.h"

namespace vxlindral {

DeviceTransform& DeviceTransform::entry(unsigned device)
{
    // Never destroyed, so a receive thread still running at exit cannot
    // touch a dead table.
    static auto* table = new DeviceTransform[kDevices];
    return table[device < kDevices ? device : 0];
}

std::mutex& DeviceTransform::tableLock()
{
    static auto* lock = new std::mutex;
    return *lock;
}

} // namespace vxlindral
