#include "capture/pcapwriter.h"

#include "capture/netbytes.h"

#include <cerrno>
#include <cstring>

namespace vxrec {

namespace {
constexpr uint32_t kMagicNanoseconds = 0xa1b23c4d;
constexpr uint32_t kLinkTypeRaw = 101; // LINKTYPE_RAW: the frame is the IP packet
constexpr uint32_t kSnapLength = 65535;

void putHost32(uint8_t* p, uint32_t v)
{
    std::memcpy(p, &v, 4);
}
void putHost16(uint8_t* p, uint16_t v)
{
    std::memcpy(p, &v, 2);
}
} // namespace

PcapWriter::~PcapWriter()
{
    close();
}

bool PcapWriter::fail(const std::string& what, int err)
{
    message = what + ": " + std::strerror(err);
    return false;
}

bool PcapWriter::open(const std::string& path)
{
    close();
    file = std::fopen(path.c_str(), "wb");
    if (!file)
        return fail("cannot create " + path, errno);
    std::setvbuf(file, nullptr, _IOFBF, 1 << 20);
    // The file is written in host byte order, which the magic announces.
    uint8_t h[kFileHeader];
    putHost32(h, kMagicNanoseconds);
    putHost16(h + 4, 2);
    putHost16(h + 6, 4);
    putHost32(h + 8, 0);  // time zone
    putHost32(h + 12, 0); // timestamp accuracy
    putHost32(h + 16, kSnapLength);
    putHost32(h + 20, kLinkTypeRaw);
    if (std::fwrite(h, sizeof h, 1, file) != 1)
        return fail("cannot write the file header", errno);
    bytes = kFileHeader;
    return true;
}

void PcapWriter::buildHeaders(uint8_t* h, uint16_t ipId, uint32_t source, uint16_t sourcePort,
                              uint32_t destination, uint16_t destinationPort, const uint8_t* data,
                              std::size_t n)
{
    const auto udpLength = static_cast<uint16_t>(8 + n);
    h[0] = 0x45; // IPv4, 20-byte header
    h[1] = 0;
    putBe16(h + 2, static_cast<uint16_t>(20 + udpLength));
    putBe16(h + 4, ipId);
    putBe16(h + 6, 0x4000); // don't fragment, offset 0: one whole datagram
    h[8] = 64;              // TTL
    h[9] = 17;              // UDP
    putBe16(h + 10, 0);
    putBe32(h + 12, source);
    putBe32(h + 16, destination);
    putBe16(h + 10, foldChecksum(onesSum(h, 20)));

    uint8_t* u = h + 20;
    putBe16(u, sourcePort);
    putBe16(u + 2, destinationPort);
    putBe16(u + 4, udpLength);
    putBe16(u + 6, 0);
    // UDP checksum over the pseudo header (addresses, protocol, length),
    // the UDP header and the data; 0 is sent as 0xffff.
    uint32_t sum = onesSum(h + 12, 8);
    sum += 17 + udpLength;
    sum = onesSum(u, 8, sum);
    sum = onesSum(data, n, sum);
    const uint16_t c = foldChecksum(sum);
    putBe16(u + 6, c ? c : 0xffff);
}

bool PcapWriter::write(int64_t timeNs, uint32_t source, uint16_t sourcePort, uint32_t destination,
                       uint16_t destinationPort, const uint8_t* data, std::size_t n)
{
    if (!file) {
        message = "no file open";
        return false;
    }
    if (n > kMaxPayload) {
        message = "datagram of " + std::to_string(n) + " bytes is too large for one IPv4 packet";
        return false;
    }
    uint8_t h[kRecordHeader + kIpUdpHeaders];
    const auto caplen = static_cast<uint32_t>(kIpUdpHeaders + n);
    putHost32(h, static_cast<uint32_t>(timeNs / 1000000000));
    putHost32(h + 4, static_cast<uint32_t>(timeNs % 1000000000));
    putHost32(h + 8, caplen);
    putHost32(h + 12, caplen);
    buildHeaders(h + kRecordHeader, nextId++, source, sourcePort, destination, destinationPort,
                 data, n);
    if (std::fwrite(h, sizeof h, 1, file) != 1 || (n && std::fwrite(data, n, 1, file) != 1))
        return fail("write failed", errno);
    bytes += recordBytes(n);
    return true;
}

bool PcapWriter::flush()
{
    if (file && std::fflush(file) != 0)
        return fail("write failed", errno);
    return true;
}

bool PcapWriter::close()
{
    if (!file)
        return true;
    const bool ok = std::fflush(file) == 0;
    if (!ok)
        fail("write failed", errno);
    const bool closed = std::fclose(file) == 0;
    if (ok && !closed)
        fail("close failed", errno);
    file = nullptr;
    return ok && closed;
}

} // namespace vxrec
