#include "capturebuilder.h"

#include <algorithm>
#include <cstdio>

namespace {
void be16(CaptureBuilder::Bytes& b, std::size_t at, uint16_t v)
{
    b[at] = static_cast<uint8_t>(v >> 8);
    b[at + 1] = static_cast<uint8_t>(v);
}
void be32(CaptureBuilder::Bytes& b, std::size_t at, uint32_t v)
{
    be16(b, at, static_cast<uint16_t>(v >> 16));
    be16(b, at + 2, static_cast<uint16_t>(v));
}
} // namespace

CaptureBuilder::CaptureBuilder(Format format, bool bigEndian, bool nanoseconds, uint32_t linkType)
    : format(format), big(bigEndian), nano(nanoseconds)
{
    if (format == Format::Pcap) {
        u32(nano ? 0xa1b23c4d : 0xa1b2c3d4);
        u16(2);
        u16(4);
        u32(0);
        u32(0);
        u32(262144);
        u32(linkType);
        return;
    }
    // Section header block, then one interface description block.
    u32(0x0a0d0d0a);
    u32(28);
    u32(0x1a2b3c4d);
    u16(1);
    u16(0);
    u32(0xffffffff);
    u32(0xffffffff);
    u32(28);
    const uint32_t idbLength = nano ? 32 : 20;
    u32(1);
    u32(idbLength);
    u16(static_cast<uint16_t>(linkType));
    u16(0);
    u32(262144);
    if (nano) {
        u16(9); // if_tsresol: 10^-9
        u16(1);
        out.push_back(9);
        padTo4();
        u32(0); // end of options
    }
    u32(idbLength);
}

void CaptureBuilder::u16(uint16_t v)
{
    if (big) {
        out.push_back(static_cast<uint8_t>(v >> 8));
        out.push_back(static_cast<uint8_t>(v));
    } else {
        out.push_back(static_cast<uint8_t>(v));
        out.push_back(static_cast<uint8_t>(v >> 8));
    }
}

void CaptureBuilder::u32(uint32_t v)
{
    if (big) {
        u16(static_cast<uint16_t>(v >> 16));
        u16(static_cast<uint16_t>(v));
    } else {
        u16(static_cast<uint16_t>(v));
        u16(static_cast<uint16_t>(v >> 16));
    }
}

void CaptureBuilder::padTo4()
{
    while (out.size() % 4)
        out.push_back(0);
}

void CaptureBuilder::add(int64_t timeNs, const Bytes& frame, uint32_t originalLength)
{
    const auto caplen = static_cast<uint32_t>(frame.size());
    const uint32_t origlen = originalLength ? originalLength : caplen;
    const int64_t units = nano ? timeNs : timeNs / 1000;
    if (format == Format::Pcap) {
        const int64_t perSecond = nano ? 1000000000 : 1000000;
        u32(static_cast<uint32_t>(units / perSecond));
        u32(static_cast<uint32_t>(units % perSecond));
        u32(caplen);
        u32(origlen);
        out.insert(out.end(), frame.begin(), frame.end());
        return;
    }
    const uint32_t length = 32 + ((caplen + 3) & ~3u);
    u32(6); // enhanced packet block
    u32(length);
    u32(0);
    u32(static_cast<uint32_t>(uint64_t(units) >> 32));
    u32(static_cast<uint32_t>(units));
    u32(caplen);
    u32(origlen);
    out.insert(out.end(), frame.begin(), frame.end());
    padTo4();
    u32(length);
}

bool CaptureBuilder::save(const std::string& path) const
{
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f)
        return false;
    const bool ok = std::fwrite(out.data(), 1, out.size(), f) == out.size();
    return std::fclose(f) == 0 && ok;
}

CaptureBuilder::Bytes CaptureBuilder::ipv4(uint32_t source, uint32_t destination, uint8_t protocol,
                                           const Bytes& payload, uint16_t id, uint16_t fragment)
{
    Bytes p(20);
    p[0] = 0x45;
    be16(p, 2, static_cast<uint16_t>(20 + payload.size()));
    be16(p, 4, id);
    be16(p, 6, fragment);
    p[8] = 64;
    p[9] = protocol;
    be32(p, 12, source);
    be32(p, 16, destination);
    uint32_t sum = 0;
    for (std::size_t i = 0; i < 20; i += 2)
        sum += uint32_t(p[i]) << 8 | p[i + 1];
    while (sum >> 16)
        sum = (sum & 0xffff) + (sum >> 16);
    be16(p, 10, static_cast<uint16_t>(~sum));
    p.insert(p.end(), payload.begin(), payload.end());
    return p;
}

CaptureBuilder::Bytes CaptureBuilder::udp(uint16_t sourcePort, uint16_t destinationPort,
                                          const Bytes& data)
{
    Bytes u(8);
    be16(u, 0, sourcePort);
    be16(u, 2, destinationPort);
    be16(u, 4, static_cast<uint16_t>(8 + data.size()));
    u.insert(u.end(), data.begin(), data.end());
    return u;
}

std::vector<CaptureBuilder::Bytes> CaptureBuilder::fragments(uint32_t source, uint32_t destination,
                                                             uint16_t id, const Bytes& segment,
                                                             std::size_t chunk)
{
    std::vector<Bytes> out;
    for (std::size_t at = 0; at < segment.size(); at += chunk) {
        const std::size_t n = std::min(chunk, segment.size() - at);
        const bool more = at + n < segment.size();
        const auto field = static_cast<uint16_t>((more ? 0x2000 : 0) | (at / 8));
        out.push_back(ipv4(
            source, destination, 17,
            Bytes(segment.begin() + std::ptrdiff_t(at), segment.begin() + std::ptrdiff_t(at + n)),
            id, field));
    }
    return out;
}

CaptureBuilder::Bytes CaptureBuilder::ethernet(uint16_t etherType, const Bytes& payload,
                                               const std::vector<uint16_t>& vlanTags)
{
    Bytes f(12, 0xaa);
    for (uint16_t tpid : vlanTags) {
        f.resize(f.size() + 4);
        be16(f, f.size() - 4, tpid);
        be16(f, f.size() - 2, 42); // VLAN id
    }
    f.resize(f.size() + 2);
    be16(f, f.size() - 2, etherType);
    f.insert(f.end(), payload.begin(), payload.end());
    return f;
}

CaptureBuilder::Bytes CaptureBuilder::linuxCooked(uint16_t protocol, const Bytes& payload)
{
    Bytes f(16, 0);
    be16(f, 2, 1); // ARPHRD_ETHER
    be16(f, 4, 6);
    be16(f, 14, protocol);
    f.insert(f.end(), payload.begin(), payload.end());
    return f;
}

CaptureBuilder::Bytes CaptureBuilder::linuxCooked2(uint16_t protocol, const Bytes& payload)
{
    Bytes f(20, 0);
    be16(f, 0, protocol);
    be32(f, 4, 2); // interface index
    be16(f, 8, 1); // ARPHRD_ETHER
    f[11] = 6;     // address length
    f.insert(f.end(), payload.begin(), payload.end());
    return f;
}

CaptureBuilder::Bytes CaptureBuilder::pattern(std::size_t n, uint8_t seed)
{
    Bytes b(n);
    for (std::size_t i = 0; i < n; ++i)
        b[i] = static_cast<uint8_t>(seed + i * 7 + (i >> 8));
    return b;
}
