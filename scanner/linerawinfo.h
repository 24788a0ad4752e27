#pragma once
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace strmsocket {

// The header of one raw-line message exactly as received (little-endian wire
// layout), with the line bytes lying behind it in the same buffer. The library
// guarantees that a LineRawInfo it hands out is backed by at least 128 bytes
// and that at least 8 zero bytes follow the declared line.
//
// Known fields (byte offsets): 0 kind, 4 series, 8 protocol, 12 sub-protocol,
// 16 device, 24 + 4n word n (n = 0..4), 48/52 extra words (1.3), 64 per-pixel
// factor (1.3), 72 f64 parameter (1.2, 1.3), 92 line bytes (1.1),
// 124 datatyp (1.2, 1.3), 128 line bytes (1.2, 1.3).
struct LineRawInfo
{
    static constexpr std::size_t kMinSize = 128;
    static constexpr std::size_t kDataOffset11 = 92;
    static constexpr std::size_t kDataOffset12 = 128;

    unsigned char bytes[kMinSize];

    uint32_t u32(std::size_t offset) const
    {
        uint32_t v;
        std::memcpy(&v, bytes + offset, sizeof v); // little-endian host assumed (x86-64, aarch64)
        return v;
    }
    double f64(std::size_t offset) const
    {
        double v;
        std::memcpy(&v, bytes + offset, sizeof v);
        return v;
    }
    uint32_t word(int n) const { return u32(24 + 4 * static_cast<std::size_t>(n)); }
    const char* data() const { return reinterpret_cast<const char*>(bytes); }
};

static_assert(sizeof(LineRawInfo) == 128, "LineRawInfo is a wire layout");

} // namespace strmsocket
