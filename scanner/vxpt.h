#pragma once
#include "scanner/bytevector.h"

#include <cstddef>
#include <cstdint>

namespace vxs {

// One point of a line: a byte-packed record of 95 bytes (arrays of points
// step by 95 bytes). Read fields by value; do not bind references to them
// (they are unaligned).
#pragma pack(push, 1)
struct VxPt
{
    uint32_t intensity = 0;   // 0: gray value
    uint32_t reserved0 = 0;   // 4
    double range = 0.0;       // 8: range in metres
    uint64_t reserved1 = 0;   // 16
    double x = 0.0;           // 24
    double y = 0.0;           // 32
    double z = 0.0;           // 40
    uint16_t reserved2 = 0;   // 48
    uint8_t reserved3 = 0;    // 50
    ByteVector raw;           // 51: the pixel's raw bytes (bpp bytes)
    uint8_t valid = 0;        // 75: 1 for every point the receiver makes
    uint8_t reserved4 = 0;    // 76
    uint8_t reserved5[16] = {}; // 77
    uint16_t reject = 0;      // 93: non-zero when a filter rejected the point
};
#pragma pack(pop)

static_assert(sizeof(VxPt) == 95, "VxPt is a packed 95-byte record");

} // namespace vxs
