#pragma once
#include "scanner/vxtrmatrix.h"

#include <mutex>

namespace vxlindral {

class MyVxLinedataStream;

// Where a device's transform is held: the matrix from the device's file
// header (keys 320..335) and its translation column. There are three entries,
// for devices 0, 1 and 2, shared by every receiver of the process.
// Ownership: the entries are process-wide (entry()), never destroyed before
// exit. Threads: written by the receive threads of the file-header callback;
// hold tableLock() while reading or writing an entry.
struct DeviceTransform
{
    static constexpr unsigned kDevices = 3;

    const MyVxLinedataStream* receiver = nullptr; // the receiver that last wrote it
    unsigned device = 0;
    VxTRMatrix matrix;
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;

    // Entry of `device` (< kDevices).
    static DeviceTransform& entry(unsigned device);
    static std::mutex& tableLock();
};

} // namespace vxlindral
