#include "capturebuilder.h"

#include <algorithm>
#include <cstdio>

CaptureBuilder::CaptureBuilder(Format format, bool bigEndian, bool nanoseconds, uint32_t linkType)
    : pcapng(format == Format::Pcapng), big(bigEndian), nano(nanoseconds)
{
    if (!pcapng) {
        append(out, big, "4224444", {nano ? 0xa1b23c4d : 0xa1b2c3d4, 2, 4, 0, 0, 262144, linkType});
        return;
    }
    // Section header block, then one interface description block whose
    // if_tsresol option announces nanoseconds.
    const uint32_t idb = nano ? 32 : 20;
    append(out, big, "4442244444224",
           {0x0a0d0d0a, 28, 0x1a2b3c4d, 1, 0, ~0u, ~0u, 28, 1, idb, linkType, 0, 262144});
    if (nano)
        append(out, big, "22134", {9, 1, 9, 0, 0});
    append(out, big, "4", {idb});
}

void CaptureBuilder::append(Bytes& to, bool bigEndian, const char* widths,
                            std::initializer_list<uint32_t> values)
{
    for (uint32_t v : values) {
        const int width = *widths++ - '0';
        for (int i = 0; i < width; ++i)
            to.push_back(uint8_t(v >> 8 * (bigEndian ? width - 1 - i : i)));
    }
}

void CaptureBuilder::add(int64_t timeNs, const Bytes& frame, uint32_t originalLength)
{
    const auto caplen = uint32_t(frame.size());
    const uint32_t orig = originalLength ? originalLength : caplen;
    const auto units = uint64_t(nano ? timeNs : timeNs / 1000);
    const uint64_t perSecond = nano ? 1000000000 : 1000000;
    const uint32_t block = 32 + ((caplen + 3) & ~3u); // enhanced packet block
    if (pcapng)
        append(out, big, "4444444",
               {6, block, 0, uint32_t(units >> 32), uint32_t(units), caplen, orig});
    else
        append(out, big, "4444",
               {uint32_t(units / perSecond), uint32_t(units % perSecond), caplen, orig});
    out.insert(out.end(), frame.begin(), frame.end());
    if (pcapng) {
        out.resize(out.size() + block - 32 - caplen);
        append(out, big, "4", {block});
    }
}

CaptureBuilder::Bytes CaptureBuilder::ipv4(const Bytes& payload, uint8_t protocol, uint16_t id,
                                           uint16_t fragment)
{
    Bytes p;
    append(p, true, "1122211244",
           {0x45, 0, uint32_t(20 + payload.size()), id, fragment, 64, protocol, 0, kSender,
            kReceiver});
    p.insert(p.end(), payload.begin(), payload.end());
    return p;
}

CaptureBuilder::Bytes CaptureBuilder::udp(uint16_t port, const Bytes& data, uint16_t sourcePort)
{
    Bytes u;
    append(u, true, "2222", {sourcePort, port, uint32_t(8 + data.size()), 0});
    u.insert(u.end(), data.begin(), data.end());
    return u;
}

std::vector<CaptureBuilder::Bytes> CaptureBuilder::fragments(const Bytes& segment,
                                                             std::size_t chunk, uint16_t id)
{
    std::vector<Bytes> out;
    for (std::size_t at = 0; at < segment.size(); at += chunk) {
        const std::size_t end = std::min(at + chunk, segment.size());
        const auto field = uint16_t((end < segment.size() ? 0x2000 : 0) | at / 8);
        out.push_back(
            ipv4(Bytes(segment.begin() + long(at), segment.begin() + long(end)), 17, id, field));
    }
    return out;
}

CaptureBuilder::Bytes CaptureBuilder::link(uint32_t linkType, uint16_t etherType,
                                           const Bytes& packet, bool vlan)
{
    Bytes f;
    if (linkType == 1) { // addresses, VLAN tags, ether type
        f.assign(12, 0xaa);
        if (vlan)
            append(f, true, "2222", {0x88a8, 42, 0x8100, 42});
        append(f, true, "2", {etherType});
    } else if (linkType == 113) { // packet type, ARPHRD, address length and bytes, protocol
        append(f, true, "222442", {0, 1, 6, 0, 0, etherType});
    } else if (linkType == 276) { // protocol, reserved, interface, ARPHRD, type, address
        append(f, true, "22421144", {etherType, 0, 2, 1, 0, 6, 0, 0});
    }
    f.insert(f.end(), packet.begin(), packet.end());
    return f;
}

CaptureBuilder::Bytes CaptureBuilder::pattern(std::size_t n, uint8_t seed)
{
    Bytes b(n);
    for (std::size_t i = 0; i < n; ++i)
        b[i] = static_cast<uint8_t>(seed + i * 7 + (i >> 8));
    return b;
}

void CaptureBuilder::save(const std::string& path, const Bytes& bytes)
{
    if (std::FILE* f = std::fopen(path.c_str(), "wb")) {
        std::fwrite(bytes.data(), 1, bytes.size(), f);
        std::fclose(f);
    }
}
