#pragma once
#include <cstdint>
#include <cstring>

namespace vxs {

// Pixel access of a raw line: the one routine that decodes a pixel's range and
// intensity, shared by the library's coordinate conversion (XYZ0) and the
// viewer's line receiver, so that both always agree.
//
// pixel i starts at p = bytes + lineheadersize + i * bpp;
// range:     1.1: u16 at p+1 (short layout) or p+2 (long layout), millimetres;
//            1.2, 1.3: low 24 bits of the u32 at p, divided by 10.0 (-> mm);
// intensity: 1.1: u16 at p+3 (short) or p+6 (long);
//            1.2, 1.3: u16 at p+3, shifted left by 8 when its lowest bit is set.
// Any access gives 0 when `bytes` is null or the protocol is not 1.1, 1.2, 1.3.
// The caller guarantees that the bytes read lie inside the buffer (the library
// pads every raw-line message with 8 zero bytes behind the declared line).
// Thread-safety: a plain value.
struct RawPixel
{
    uint32_t protocol = 0;
    uint32_t subProtocol = 0;
    bool layoutFlag = false; // 1.1 only: short layout
    const char* bytes = nullptr;
    int32_t lineheadersize = 0;
    int32_t bpp = 0;

    bool known() const
    {
        return bytes != nullptr && protocol == 1 && subProtocol >= 1 && subProtocol <= 3;
    }
    bool isV11() const { return subProtocol == 1; }

    const char* pixel(int i) const
    {
        return bytes + static_cast<intptr_t>(lineheadersize) +
               static_cast<intptr_t>(i) * static_cast<intptr_t>(bpp);
    }

    double range(int i) const
    {
        if (!known())
            return 0.0;
        const char* p = pixel(i);
        if (isV11())
            return static_cast<double>(u16(p + (layoutFlag ? 1 : 2)));
        return static_cast<double>(u32(p) & 0xFFFFFFu) / 10.0;
    }

    uint32_t intensity(int i) const
    {
        if (!known())
            return 0;
        const char* p = pixel(i);
        if (isV11())
            return u16(p + (layoutFlag ? 3 : 6));
        uint32_t v = u16(p + 3);
        if (v & 1u)
            v <<= 8;
        return v;
    }

    static uint16_t u16(const char* p)
    {
        uint16_t v;
        std::memcpy(&v, p, sizeof v);
        return v;
    }
    static uint32_t u32(const char* p)
    {
        uint32_t v;
        std::memcpy(&v, p, sizeof v);
        return v;
    }
};

} // namespace vxs
