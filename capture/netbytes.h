#pragma once
#include <cstddef>
#include <cstdint>

// Byte-order helpers for packet headers (network order = big-endian) and for
// capture-file headers (either order). Free functions; any thread.
namespace vxrec {

inline uint16_t be16(const uint8_t* p)
{
    return static_cast<uint16_t>(p[0] << 8 | p[1]);
}

inline uint32_t be32(const uint8_t* p)
{
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

inline void putBe16(uint8_t* p, uint16_t v)
{
    p[0] = static_cast<uint8_t>(v >> 8);
    p[1] = static_cast<uint8_t>(v);
}

inline void putBe32(uint8_t* p, uint32_t v)
{
    putBe16(p, static_cast<uint16_t>(v >> 16));
    putBe16(p + 2, static_cast<uint16_t>(v));
}

// One's-complement sum of 16-bit big-endian words (odd tail padded with 0),
// the basis of the IPv4 and UDP checksums.
inline uint32_t onesSum(const uint8_t* p, std::size_t n, uint32_t sum = 0)
{
    for (; n > 1; p += 2, n -= 2)
        sum += be16(p);
    if (n)
        sum += uint32_t(p[0]) << 8;
    return sum;
}

inline uint16_t foldChecksum(uint32_t sum)
{
    while (sum >> 16)
        sum = (sum & 0xffff) + (sum >> 16);
    return static_cast<uint16_t>(~sum);
}

} // namespace vxrec
