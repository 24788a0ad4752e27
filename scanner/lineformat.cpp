#include "scanner/lineformat.h"

namespace vxlindral {

bool LineFormat::decode(const strmsocket::LineRawInfo* raw)
{
    scratch = 0;
    if (!raw)
        return false;
    info = raw;
    protocol = raw->u32(8);
    subProtocol = raw->u32(12);
    if (protocol != 1)
        return false;

    const auto s32 = [raw](std::size_t offset) { return static_cast<int32_t>(raw->u32(offset)); };
    switch (subProtocol) {
    case 1:
        bytes = raw->data() + strmsocket::LineRawInfo::kDataOffset11;
        datatyp = static_cast<int32_t>(raw->word(0));
        layoutFlag = raw->word(1) != 0;
        lineheadersize = static_cast<int32_t>(raw->word(2));
        bpp = static_cast<int32_t>(raw->word(3));
        pixel = static_cast<int32_t>(raw->word(4));
        break;
    case 2:
    case 3:
        bytes = raw->data() + strmsocket::LineRawInfo::kDataOffset12;
        mode = static_cast<int32_t>(raw->word(0));
        lineheadersize = static_cast<int32_t>(raw->word(2));
        bpp = static_cast<int32_t>(raw->word(3));
        pixel = static_cast<int32_t>(raw->word(4));
        datatyp = s32(124);
        parameter = raw->f64(72);
        if (subProtocol == 3) {
            extra1 = s32(48);
            extra2 = s32(52);
            factor = s32(64);
            // Wraps like the 32-bit product it is; only kept for display.
            factorTotal =
                static_cast<int32_t>(static_cast<uint32_t>(pixel) * static_cast<uint32_t>(factor));
        }
        break;
    default:
        return false;
    }

    // The header size is compared signed, the others unsigned: a negative
    // header size passes here (and fails when the line is built), while a
    // negative pixel count, bpp or datatyp is rejected.
    if (lineheadersize > 255)
        return false;
    const auto inRange = [](int32_t v, uint32_t lo, uint32_t hi) {
        const auto u = static_cast<uint32_t>(v);
        return u >= lo && u <= hi;
    };
    return inRange(pixel, 1, 199999) && inRange(bpp, 2, 63) && inRange(datatyp, 2, 9999);
}

vxs::RawPixel LineFormat::pixels() const
{
    vxs::RawPixel p;
    p.protocol = protocol;
    p.subProtocol = subProtocol;
    p.layoutFlag = layoutFlag;
    p.bytes = bytes;
    p.lineheadersize = lineheadersize;
    p.bpp = bpp;
    return p;
}

} // namespace vxlindral
