#pragma once
#include <cstdint>
#include <string>
#include <vector>

// Builds capture files byte by byte for the tests: classic pcap or pcapng,
// either byte order, microsecond or nanosecond timestamps, any link type;
// plus the frames to put in them (IPv4/UDP packets, fragments, link-layer
// headers). Plain value; one thread.
class CaptureBuilder
{
public:
    using Bytes = std::vector<uint8_t>;
    enum class Format
    {
        Pcap,
        Pcapng
    };

    CaptureBuilder(Format format, bool bigEndian, bool nanoseconds, uint32_t linkType);

    // Adds a frame; `originalLength` 0 means the frame's own length.
    void add(int64_t timeNs, const Bytes& frame, uint32_t originalLength = 0);
    const Bytes& bytes() const { return out; }
    bool save(const std::string& path) const;

    // An IPv4 packet (20-byte header, checksum set) around `payload`.
    static Bytes ipv4(uint32_t source, uint32_t destination, uint8_t protocol, const Bytes& payload,
                      uint16_t id = 1, uint16_t fragment = 0);
    // A UDP header and data (checksum 0: none).
    static Bytes udp(uint16_t sourcePort, uint16_t destinationPort, const Bytes& data);
    // IPv4 fragments of a UDP segment: pieces of `chunk` bytes (a multiple
    // of 8), in order.
    static std::vector<Bytes> fragments(uint32_t source, uint32_t destination, uint16_t id,
                                        const Bytes& segment, std::size_t chunk);
    // Link-layer wrappers.
    static Bytes ethernet(uint16_t etherType, const Bytes& payload,
                          const std::vector<uint16_t>& vlanTags = {});
    static Bytes linuxCooked(uint16_t protocol, const Bytes& payload);
    static Bytes linuxCooked2(uint16_t protocol, const Bytes& payload);
    static Bytes pattern(std::size_t n, uint8_t seed);

private:
    void u16(uint16_t v);
    void u32(uint32_t v);
    void padTo4();
    Format format;
    bool big;
    bool nano;
    Bytes out;
};
