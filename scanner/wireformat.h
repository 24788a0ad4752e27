#pragma once
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace strmsocket {

// Constants of the UDP wire protocol (docs/protocol.md).
struct WireFormat
{
    static constexpr uint32_t kMagic = 0x46535856; // "VXSF" little-endian
    static constexpr std::size_t kDatagramHeader = 16;
    static constexpr std::size_t kMaxUdpPayload = 65507;
    static constexpr std::size_t kMaxFragment = kMaxUdpPayload - kDatagramHeader; // 65491
    static constexpr uint32_t kMaxMessage = 16u * 1024u * 1024u;
    static constexpr std::size_t kMaxIncompletePerSender = 8;
    static constexpr int kIncompleteTimeoutMs = 1000;

    enum Kind : uint32_t
    {
        kRawLine = 1,
        kFileHeader = 2,
    };

    // Whether a datagram of `n` bytes begins a message of `kind`: the
    // framing's magic, fragment offset 0, then the message's kind. Counts
    // lines in captures and recordings without reassembling them.
    static bool beginsMessage(const void* datagram, std::size_t n, Kind kind)
    {
        const auto* p = static_cast<const unsigned char*>(datagram);
        const auto u32 = [p](std::size_t at) {
            uint32_t v;
            std::memcpy(&v, p + at, sizeof v);
            return v;
        };
        return n >= kDatagramHeader + 4 && u32(0) == kMagic && u32(12) == 0 &&
               u32(kDatagramHeader) == kind;
    }
    static bool beginsRawLine(const void* datagram, std::size_t n)
    {
        return beginsMessage(datagram, n, kRawLine);
    }
};

} // namespace strmsocket
