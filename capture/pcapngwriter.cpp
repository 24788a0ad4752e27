#include "capture/pcapngwriter.h"

namespace vxrec {

namespace {
constexpr uint32_t kSectionHeader = 0x0A0D0D0A;
constexpr uint32_t kInterfaceDescription = 1;
constexpr uint32_t kEnhancedPacket = 6;
constexpr uint32_t kByteOrderMagic = 0x1A2B3C4D;
constexpr uint16_t kLinkTypeRaw = 101; // the frame is the IP packet
constexpr uint16_t kOptionTsResol = 9;
constexpr std::size_t kEnhancedPacketFixed = 28 + 4; // block up to the data, trailing length

std::size_t pad4(std::size_t n)
{
    return (n + 3) & ~std::size_t(3);
}
} // namespace

uint64_t PcapngWriter::blockBytes(std::size_t payload)
{
    return kEnhancedPacketFixed + pad4(kIpUdpHeaders + payload);
}

void PcapngWriter::putHeader()
{
    // Section header: no options, section length unknown (-1). The file is
    // written in host byte order, which the magic announces.
    const uint32_t shb[] = {kSectionHeader, 28, kByteOrderMagic, 1 /* 1.0 */, 0xffffffffu,
                            0xffffffffu,    28};
    put(shb, sizeof shb);
    // Interface 0: raw IPv4, no snap length, timestamps in nanoseconds.
    const uint32_t idbHead[] = {kInterfaceDescription, 32};
    const uint16_t link[] = {kLinkTypeRaw, 0};
    const uint32_t snapLength = 0;
    const uint16_t tsresol[] = {kOptionTsResol, 1};
    const uint8_t nanoseconds[4] = {9, 0, 0, 0};
    const uint32_t idbTail[] = {0 /* end of options */, 32};
    put(idbHead, sizeof idbHead);
    put(link, sizeof link);
    put(&snapLength, sizeof snapLength);
    put(tsresol, sizeof tsresol);
    put(nanoseconds, sizeof nanoseconds);
    put(idbTail, sizeof idbTail);
}

void PcapngWriter::putRecord(int64_t timeNs, const uint8_t* headers, const uint8_t* data,
                             std::size_t n)
{
    const auto packet = static_cast<uint32_t>(kIpUdpHeaders + n);
    const auto length = static_cast<uint32_t>(blockBytes(n));
    const auto ts = static_cast<uint64_t>(timeNs);
    const uint32_t head[] = {kEnhancedPacket, length, 0,     uint32_t(ts >> 32),
                             uint32_t(ts),    packet, packet};
    put(head, sizeof head);
    put(headers, kIpUdpHeaders);
    put(data, n);
    const char zeros[3] = {};
    put(zeros, pad4(packet) - packet);
    put(&length, sizeof length);
}

} // namespace vxrec
