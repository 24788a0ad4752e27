#pragma once
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace vxrec {

// Writes received UDP datagrams into a classic pcap file (nanosecond
// timestamps, link type raw IPv4) with synthesised IPv4 and UDP headers, so
// that Wireshark, tcpdump and vxscanner-replay read it like a capture taken
// on the wire. One unfragmented IPv4 packet per datagram.
//
// Ownership: owns the file. Threads: one thread at a time.
class PcapWriter
{
public:
    static constexpr std::size_t kFileHeader = 24;
    static constexpr std::size_t kRecordHeader = 16;
    static constexpr std::size_t kIpUdpHeaders = 28;
    static constexpr std::size_t kMaxPayload = 65535 - kIpUdpHeaders;

    PcapWriter() = default;
    ~PcapWriter();
    PcapWriter(const PcapWriter&) = delete;
    PcapWriter& operator=(const PcapWriter&) = delete;

    // Creates (or truncates) the file and writes the file header.
    bool open(const std::string& path);
    // Appends one datagram; addresses in host byte order. False on a write
    // error or a payload above kMaxPayload.
    bool write(int64_t timeNs, uint32_t source, uint16_t sourcePort, uint32_t destination,
               uint16_t destinationPort, const uint8_t* data, std::size_t n);
    bool flush();
    // Flushes and closes; false when a buffered write failed.
    bool close();

    // Bytes the file holds (file header included).
    uint64_t fileBytes() const { return bytes; }
    static uint64_t recordBytes(std::size_t payload)
    {
        return kRecordHeader + kIpUdpHeaders + payload;
    }
    const std::string& error() const { return message; }

    // Fills the 28 bytes of IPv4 and UDP header for a datagram (checksums
    // included). Public for tests and for anyone synthesising packets.
    static void buildHeaders(uint8_t* out, uint16_t ipId, uint32_t source, uint16_t sourcePort,
                             uint32_t destination, uint16_t destinationPort, const uint8_t* data,
                             std::size_t n);

private:
    bool fail(const std::string& what, int err);

    std::FILE* file = nullptr;
    uint64_t bytes = 0;
    uint16_t nextId = 1;
    std::string message;
};

} // namespace vxrec
