#include "scanner/wireencoder.h"

#include "scanner/linerawinfo.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace strmsocket {

namespace {

void putU32(std::vector<char>& v, std::size_t offset, uint32_t x)
{
    std::memcpy(v.data() + offset, &x, sizeof x);
}

void putF64(std::vector<char>& v, std::size_t offset, double x)
{
    std::memcpy(v.data() + offset, &x, sizeof x);
}

} // namespace

std::vector<char> WireEncoder::rawLine(const RawLine& h, const char* lineBytes, std::size_t n)
{
    // Protocol 1.1 lines carry a 92-byte header; every other pair uses the
    // 128-byte header of 1.2/1.3 (so that unknown pairs can still be sent).
    const bool v11 = h.protocol == 1 && h.subProtocol == 1;
    const std::size_t headerSize = v11 ? LineRawInfo::kDataOffset11 : LineRawInfo::kDataOffset12;
    std::vector<char> m(headerSize + n, 0);
    putU32(m, 0, WireFormat::kRawLine);
    putU32(m, 4, h.series);
    putU32(m, 8, h.protocol);
    putU32(m, 12, h.subProtocol);
    putU32(m, 16, h.device);
    putU32(m, 24, v11 ? h.datatyp : h.mode); // word 0
    if (v11)
        putU32(m, 28, h.layoutFlag); // word 1
    putU32(m, 32, h.lineheadersize); // word 2
    putU32(m, 36, h.bpp);            // word 3
    putU32(m, 40, h.pixel);          // word 4
    if (!v11) {
        putU32(m, 48, h.extra1);
        putU32(m, 52, h.extra2);
        putU32(m, 64, h.factor);
        putF64(m, 72, h.parameter);
        putU32(m, 124, h.datatyp);
    }
    if (n)
        std::memcpy(m.data() + headerSize, lineBytes, n);
    return m;
}

std::vector<char> WireEncoder::fileHeader(uint32_t device, const std::string& name,
                                          const std::vector<std::pair<uint32_t, double>>& entries)
{
    if (name.size() > 255)
        throw std::invalid_argument("file header name longer than 255 bytes");
    const std::size_t nameLen = name.size();
    std::vector<char> m(16 + nameLen + 12 * entries.size(), 0);
    putU32(m, 0, WireFormat::kFileHeader);
    putU32(m, 8, device);
    putU32(m, 12, static_cast<uint32_t>(nameLen));
    if (nameLen)
        std::memcpy(m.data() + 16, name.data(), nameLen);
    std::size_t at = 16 + nameLen;
    for (const auto& e : entries) {
        putU32(m, at, e.first);
        putF64(m, at + 4, e.second);
        at += 12;
    }
    return m;
}

std::vector<std::vector<char>> WireEncoder::fragment(uint32_t messageNumber, const char* message,
                                                     std::size_t length, std::size_t maxFragment)
{
    if (maxFragment == 0 || maxFragment > WireFormat::kMaxFragment)
        maxFragment = WireFormat::kMaxFragment;
    std::vector<std::vector<char>> out;
    out.reserve(length / maxFragment + 1);
    const auto total = static_cast<uint32_t>(length);
    std::size_t offset = 0;
    do {
        const std::size_t n = std::min(maxFragment, length - offset);
        out.push_back(
            datagram(messageNumber, total, static_cast<uint32_t>(offset), message + offset, n));
        offset += n;
    } while (offset < length);
    return out;
}

std::vector<char> WireEncoder::datagram(uint32_t messageNumber, uint32_t messageLength,
                                        uint32_t offset, const char* bytes, std::size_t n)
{
    std::vector<char> d(WireFormat::kDatagramHeader + n);
    putU32(d, 0, WireFormat::kMagic);
    putU32(d, 4, messageNumber);
    putU32(d, 8, messageLength);
    putU32(d, 12, offset);
    if (n)
        std::memcpy(d.data() + WireFormat::kDatagramHeader, bytes, n);
    return d;
}

} // namespace strmsocket
