#pragma once
#include <algorithm>
#include <cstdint>
#include <fstream>
#include <initializer_list>
#include <string>
#include <vector>

// Builds classic pcap files byte by byte for the tests: either byte order,
// microsecond or nanosecond timestamps, any link type; plus the frames to
// put in them (IPv4/UDP packets from kSender to kReceiver, fragments,
// link-layer headers). pcapng is read by libpcap alone and comes with the
// foreign capture of tests/data. Plain value; one thread.
class CaptureBuilder
{
public:
    using Bytes = std::vector<uint8_t>;
    static constexpr uint32_t kSender = 0xc0a80064;   // 192.168.0.100
    static constexpr uint32_t kReceiver = 0xc0a80001; // 192.168.0.1

    CaptureBuilder(bool bigEndian, bool nanoseconds, uint32_t linkType)
        : big(bigEndian), nano(nanoseconds)
    {
        put("4224444", {nano ? 0xa1b23c4d : 0xa1b2c3d4, 2, 4, 0, 0, 262144, linkType});
    }

    void add(int64_t timeNs, const Bytes& frame)
    {
        const auto units = uint64_t(nano ? timeNs : timeNs / 1000);
        const uint64_t perSecond = nano ? 1000000000 : 1000000;
        const auto length = uint32_t(frame.size());
        put("4444", {uint32_t(units / perSecond), uint32_t(units % perSecond), length, length},
            frame);
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
    // A UDP segment from port 5000 (checksum 0: none).
    static Bytes udp(uint16_t port, const Bytes& data)
    {
        return fields(true, "2222", {5000, port, uint32_t(8 + data.size()), 0}, data);
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
    // Bytes without a period of 256 (or of any fragment size).
    static Bytes pattern(std::size_t n, uint8_t seed)
    {
        Bytes b(n);
        for (std::size_t i = 0; i < n; ++i)
            b[i] = uint8_t(seed + i * 7 + (i >> 8));
        return b;
    }
    static void save(const std::string& path, const Bytes& bytes)
    {
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    }

private:
    void put(const char* widths, std::initializer_list<uint32_t> values, const Bytes& tail = {})
    {
        const Bytes b = fields(big, widths, values, tail);
        out.insert(out.end(), b.begin(), b.end());
    }
    bool big, nano;
    Bytes out;
};
