#pragma once
#include <cstdint>

namespace vxs {

// Value types of the filter library. The viewer only constructs lists of them
// and receives an (empty) list in OnFilteredLine; it reads no field.
struct PData
{
    double range = 0.0;
    uint32_t intensity = 0;
};

struct PDataRaw : PData
{
    uint32_t raw = 0;
};

struct PDataRGB : PData
{
    uint8_t r = 0, g = 0, b = 0;
};

struct PDataDetail : PData
{
    double x = 0.0, y = 0.0, z = 0.0;
    uint16_t reject = 0;
};

} // namespace vxs
