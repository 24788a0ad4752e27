#pragma once
#include "scanner/linerawinfo.h"
#include "scanner/rawlineparser.h"
#include "scanner/rawpixel.h"

#include <cstdint>

namespace vxlindral {

// The decoded header of one raw line (protocols 1.1, 1.2 and 1.3) with the
// limits a line must meet before it is turned into a MyLine.
// Ownership: a plain value; `info` and `bytes` point into the library's
// message buffer and are valid only during the callback that decoded them.
// Threads: owned by one receiver and used on its receive thread only.
struct LineFormat
{
    const strmsocket::LineRawInfo* info = nullptr;
    const char* bytes = nullptr; // line header followed by the pixels
    uint32_t protocol = 0;
    uint32_t subProtocol = 0;
    int32_t datatyp = 0;
    int32_t mode = vx::RawLineParser::MOD_CLASSIC; // 1.1 lines keep the previous mode
    bool layoutFlag = false;                       // 1.1: short pixel layout
    int32_t lineheadersize = 0;
    int32_t pixel = 0;
    int32_t bpp = 0;
    int32_t extra1 = 0; // 1.3 only
    int32_t extra2 = 0;
    int32_t factor = 0;
    int32_t factorTotal = 0; // pixel x factor
    double parameter = 0.0;  // 1.2, 1.3; a 1.1 line leaves it as it was
    uint64_t scratch = 0;    // cleared on every decode, otherwise unused

    // Decodes `raw` into this format. False for a null header, an unknown
    // protocol or a field outside its limits; the fields read so far stay.
    bool decode(const strmsocket::LineRawInfo* raw);

    // Pixel access (range, intensity, raw bytes) for the decoded line.
    vxs::RawPixel pixels() const;
};

} // namespace vxlindral
