#pragma once
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <vector>

// Builds capture files byte by byte for the tests: classic pcap or pcapng,
// either byte order, microsecond or nanosecond timestamps, any link type;
// plus the frames to put in them (IPv4/UDP packets from kSender to
// kReceiver, fragments, link-layer headers). Plain value; one thread.
class CaptureBuilder
{
public:
    using Bytes = std::vector<uint8_t>;
    enum class Format
    {
        Pcap,
        Pcapng
    };
    static constexpr uint32_t kSender = 0xc0a80064;   // 192.168.0.100
    static constexpr uint32_t kReceiver = 0xc0a80001; // 192.168.0.1

    CaptureBuilder(Format format, bool bigEndian, bool nanoseconds, uint32_t linkType)
        : pcapng(format == Format::Pcapng), big(bigEndian), nano(nanoseconds)
    {
        if (!pcapng) {
            put("4224444", {nano ? 0xa1b23c4d : 0xa1b2c3d4, 2, 4, 0, 0, 262144, linkType});
            return;
        }
        // A section header block, then one interface description block
        // whose if_tsresol option announces nanoseconds.
        const uint32_t idb = nano ? 32 : 20;
        put("4442244444224",
            {0x0a0d0d0a, 28, 0x1a2b3c4d, 1, 0, ~0u, ~0u, 28, 1, idb, linkType, 0, 262144});
        if (nano)
            put("22134", {9, 1, 9, 0, 0});
        put("4", {idb});
    }

    // Adds a frame; `originalLength` 0 means the frame's own length.
    void add(int64_t timeNs, const Bytes& frame, uint32_t originalLength = 0)
    {
        const auto caplen = uint32_t(frame.size()), orig = originalLength ? originalLength : caplen;
        const auto units = uint64_t(nano ? timeNs : timeNs / 1000);
        const uint64_t perSecond = nano ? 1000000000 : 1000000;
        const uint32_t block = 32 + ((caplen + 3) & ~3u); // enhanced packet block
        if (!pcapng) {
            put("4444", {uint32_t(units / perSecond), uint32_t(units % perSecond), caplen, orig},
                frame);
            return;
        }
        put("4444444", {6, block, 0, uint32_t(units >> 32), uint32_t(units), caplen, orig}, frame);
        out.resize(out.size() + block - 32 - caplen);
        put("4", {block});
    }
    const Bytes& bytes() const { return out; }

    // Each value in as many bytes as the digit of `widths` at its place,
    // then `tail`.
    static Bytes fields(bool bigEndian, const char* widths, std::initializer_list<uint32_t> values,
                        const Bytes& tail = {})
    {
        Bytes b;
        for (uint32_t v : values)
            for (int width = *widths++ - '0', i = 0; i < width; ++i)
                b.push_back(uint8_t(v >> 8 * (bigEndian ? width - 1 - i : i)));
        b.insert(b.end(), tail.begin(), tail.end());
        return b;
    }
    // An IPv4 packet around `payload` (header checksum 0: the reader ignores it).
    static Bytes ipv4(const Bytes& payload, uint8_t protocol = 17, uint16_t id = 1,
                      uint16_t fragment = 0)
    {
        return fields(true, "1122211244",
                      {0x45, 0, uint32_t(20 + payload.size()), id, fragment, 64, protocol, 0,
                       kSender, kReceiver},
                      payload);
    }
    // A UDP segment (checksum 0: none).
    static Bytes udp(uint16_t port, const Bytes& data, uint16_t sourcePort = 5000)
    {
        return fields(true, "2222", {sourcePort, port, uint32_t(8 + data.size()), 0}, data);
    }
    // IPv4 fragments of a UDP segment, `chunk` bytes (a multiple of 8) each, in order.
    static std::vector<Bytes> fragments(const Bytes& segment, std::size_t chunk, uint16_t id)
    {
        std::vector<Bytes> out;
        for (std::size_t at = 0, end; at < segment.size(); at = end) {
            end = std::min(at + chunk, segment.size());
            const auto field = uint16_t((end < segment.size() ? 0x2000 : 0) | at / 8);
            out.push_back(ipv4(Bytes(&segment[at], &segment[0] + end), 17, id, field));
        }
        return out;
    }
    // `packet` behind the link-layer header of `linkType`: Ethernet (with a
    // Q-in-Q pair of VLAN tags if `vlan`), Linux cooked v1 and v2; none on
    // raw links.
    static Bytes link(uint32_t linkType, uint16_t etherType, const Bytes& packet, bool vlan = false)
    {
        const uint32_t mac = 0xaaaaaaaa;
        switch (linkType) {
        case 1: // addresses, tags, ether type
            return vlan ? fields(true, "44422222",
                                 {mac, mac, mac, 0x88a8, 42, 0x8100, 42, etherType}, packet)
                        : fields(true, "4442", {mac, mac, mac, etherType}, packet);
        case 113: // packet type, ARPHRD, address length and bytes, protocol
            return fields(true, "222442", {0, 1, 6, 0, 0, etherType}, packet);
        case 276: // protocol, reserved, interface, ARPHRD, type, address length and bytes
            return fields(true, "22421144", {etherType, 0, 2, 1, 0, 6, 0, 0}, packet);
        }
        return packet;
    }
    static Bytes pattern(std::size_t n, uint8_t seed)
    {
        Bytes b(n);
        for (std::size_t i = 0; i < n; ++i)
            b[i] = uint8_t(seed + i * 7 + (i >> 8));
        return b;
    }
    static void save(const std::string& path, const Bytes& bytes)
    {
        if (std::FILE* f = std::fopen(path.c_str(), "wb")) {
            std::fwrite(bytes.data(), 1, bytes.size(), f);
            std::fclose(f);
        }
    }

private:
    void put(const char* widths, std::initializer_list<uint32_t> values, const Bytes& tail = {})
    {
        const Bytes b = fields(big, widths, values, tail);
        out.insert(out.end(), b.begin(), b.end());
    }
    bool pcapng, big, nano;
    Bytes out;
};
