#pragma once
#include <cstdint>
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

    CaptureBuilder(Format format, bool bigEndian, bool nanoseconds, uint32_t linkType);
    // Adds a frame; `originalLength` 0 means the frame's own length.
    void add(int64_t timeNs, const Bytes& frame, uint32_t originalLength = 0);
    const Bytes& bytes() const { return out; }

    // An IPv4 packet around `payload` (header checksum 0: the reader ignores it).
    static Bytes ipv4(const Bytes& payload, uint8_t protocol = 17, uint16_t id = 1,
                      uint16_t fragment = 0);
    // A UDP segment (checksum 0: none).
    static Bytes udp(uint16_t port, const Bytes& data, uint16_t sourcePort = 5000);
    // IPv4 fragments of a UDP segment, `chunk` bytes (a multiple of 8) each, in order.
    static std::vector<Bytes> fragments(const Bytes& segment, std::size_t chunk, uint16_t id);
    // `packet` behind the link-layer header of `linkType` (Ethernet with an
    // optional Q-in-Q pair of VLAN tags, Linux cooked v1/v2; raw links none).
    static Bytes link(uint32_t linkType, uint16_t etherType, const Bytes& packet,
                      bool vlan = false);
    static Bytes pattern(std::size_t n, uint8_t seed);
    static void save(const std::string& path, const Bytes& bytes);

private:
    // Appends each value in as many bytes as the digit of `widths` at its place.
    static void append(Bytes& to, bool bigEndian, const char* widths,
                       std::initializer_list<uint32_t> values);
    bool pcapng, big, nano;
    Bytes out;
};
