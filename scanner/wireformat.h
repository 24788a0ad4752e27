#pragma once
#include <cstddef>
#include <cstdint>

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
};

} // namespace strmsocket
